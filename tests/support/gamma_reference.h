// The automatic gamma written out step by step, plainly and on its own, as the
// yardstick the daemon's code must match bit for bit. It shares nothing with
// src/faceDet/auto_gamma.cpp but the record's layout. Header only: the unit
// tests and the integration test against the real daemon both use it.
#ifndef FACEDET_TEST_GAMMA_REFERENCE_H
#define FACEDET_TEST_GAMMA_REFERENCE_H

#include <cmath>
#include <cstdint>

#include <gtest/gtest.h>

#include "faceDet/gamma_record.h"

struct ReferenceGammaState {
    int32_t cur_isuse = 0, pre_isuse = 0;
    uint8_t reverseFlag = 0;
    int32_t appliedOffsets[256] = {}, newOffsets[256] = {};
};

// (int) of a float, failing the test where the conversion would be undefined.
inline int32_t reference_truncate(float v) {
    if (!((double)v > -2147483649.0 && (double)v < 2147483648.0)) {
        ADD_FAILURE() << "float " << v << " has no int32 truncation";
        return 0;
    }
    return (int32_t)v;
}

// One frame on a record already read into `rec`. Returns true when the record
// is to be written back. g_v_hist is normalised when a curve is computed, as
// the daemon does.
inline bool reference_gamma_frame(ReferenceGammaState &st, GammaRecord &rec, float g_v_hist[256]) {
    st.cur_isuse = rec.isuse;
    st.reverseFlag = rec.isuse != 0;
    for (int i = 0; i < 256; i++) {
        if (rec.isuse == 0 && st.pre_isuse == 1) {
            st.appliedOffsets[i] = st.newOffsets[i] = 0;
        } else if (rec.isuse != 0 && rec.mode == 0 && rec.valid == 1) {
            st.appliedOffsets[i] = st.newOffsets[i];
        }
    }
    st.pre_isuse = rec.isuse;
    if (rec.mode != 1) {
        return false;
    }
    // The scene as it was before the applied curve, from the highest level down.
    float W[256] = {};
    for (int i = 255; i >= 0; i--) {
        const long long j = st.reverseFlag ? (long long)i - st.appliedOffsets[i] : i;
        if (0 <= j && j <= 255) {
            W[j] += g_v_hist[i];
        }
    }
    const int N = 97344;
    float S = 0, V = 0;
    for (int i = 0; i < 256; i++) {
        S += i * W[i];
    }
    for (int i = 0; i < 256; i++) {
        V += (i - S / N) * (i - S / N) * W[i];
    }
    V = V / N;
    const int32_t mean = (int32_t)(S / N), stdDev = (int32_t)sqrtf(V);
    // Percentiles count whole pixels; one level sets at most one of them.
    const double limits[5] = {973.44, 9734.4, 48672.0, 87609.6, 96370.56};
    int32_t p[5] = {0, 0, 0, 0, 0};  // p1 p10 p50 p90 p99
    bool has[5] = {false, false, false, false, false};
    int C = 0;
    for (int i = 0; i < 256; i++) {
        C += (int)W[i];
        for (int k = 0; k < 5; k++) {
            if (!has[k] && (double)C >= limits[k]) {
                p[k] = i;
                has[k] = true;
                break;
            }
        }
    }
    float min = 97344.0f, max = -1.0f;
    for (int i = 0; i < 256; i++) {
        g_v_hist[i] = g_v_hist[i] / 97344;
        min = g_v_hist[i] < min ? g_v_hist[i] : min;
        max = g_v_hist[i] > max ? g_v_hist[i] : max;
    }
    const float range = max - min;
    bool valid = false;
    if (!((double)range < 1e-10)) {
        float P[256], Q[256], running = 0;
        for (int i = 0; i < 256; i++) {
            const float t = (g_v_hist[i] - min) / range;
            P[i] = sqrtf(t < 0 ? 0 : t) * max;
        }
        for (int i = 0; i < 256; i++) {
            running = running + P[i];
            Q[i] = running;
        }
        const float w_max = (float)(rec.strength * 0.35 / 100);
        for (int i = 0; i < 256; i++) {
            const double power = pow(i / 255.0, (double)(1 - Q[i] / Q[255]));
            rec.curve[i] = i < 20 ? i : reference_truncate((float)(power * 255.0));
            if (i >= 20) {
                const float w = i <= 49 ? (i - 20) * w_max / 30 : w_max;
                rec.curve[i] = reference_truncate(w * rec.curve[i] + (1 - w) * i);
            }
        }
        rec.mean = mean;
        rec.stdDev = stdDev;
        rec.p1 = p[0];
        rec.p10 = p[1];
        rec.p50 = p[2];
        rec.p90 = p[3];
        rec.p99 = p[4];
        if (mean >= 71 && mean <= 149 && stdDev >= 26 && stdDev <= 89 && p[2] - mean >= -29 &&
            p[2] - mean <= 29 && p[2] >= 51 && p[2] <= 179 && p[3] >= 131 && p[3] <= 229) {
            valid = p[0] <= 79 && p[1] >= 11 && p[1] <= 119;
        } else {
            valid = mean >= 151 && mean <= 169 && stdDev >= 26 && stdDev <= 59 && p[2] - mean >= -24 &&
                    p[2] - mean <= 19 && p[2] >= 51 && p[2] <= 179 && p[3] >= 131 && p[3] <= 229 &&
                    p[1] >= 11 && p[1] <= 119 && p[0] <= 89;
        }
        for (int i = 0; i < 256; i++) {
            st.newOffsets[i] = valid ? rec.curve[i] - i : 0;
        }
    }
    rec.valid = valid ? 1 : 0;
    return true;
}

#endif
