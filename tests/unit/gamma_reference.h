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
    int32_t cur_isuse = 0;
    int32_t pre_isuse = 0;
    uint8_t reverseFlag = 0;
    int32_t appliedOffsets[256] = {};
    int32_t newOffsets[256] = {};
};

// (int) of a float, failing the test when the value has no int32 (where the
// conversion would be undefined).
inline int32_t reference_truncate(float v) {
    if (!((double)v > -2147483649.0 && (double)v < 2147483648.0)) {
        ADD_FAILURE() << "float " << v << " has no int32 truncation";
        return 0;
    }
    return (int32_t)v;
}

// Steps 1b to 11 of one frame on a record already read into `rec`. Returns
// true when the record is to be written back. g_v_hist is changed as the
// daemon changes it (normalised when a curve is computed).
inline bool reference_gamma_frame(ReferenceGammaState &st, GammaRecord &rec, float g_v_hist[256]) {
    // 1.
    st.cur_isuse = rec.isuse;
    // 2.
    if (rec.isuse == 0) {
        st.reverseFlag = 0;
        if (st.pre_isuse == 1) {
            for (int i = 0; i < 256; i++) {
                st.appliedOffsets[i] = 0;
                st.newOffsets[i] = 0;
            }
        }
    }
    // 3.
    if (rec.isuse != 0) {
        st.reverseFlag = 1;
        if (rec.mode == 0 && rec.valid == 1) {
            for (int i = 0; i < 256; i++) {
                st.appliedOffsets[i] = st.newOffsets[i];
            }
        }
    }
    // 4.
    st.pre_isuse = rec.isuse;
    // 5.
    if (rec.mode != 1) {
        return false;
    }
    // 6.
    float W[256];
    if (st.reverseFlag == 0) {
        for (int i = 0; i < 256; i++) {
            W[i] = g_v_hist[i];
        }
    } else {
        for (int i = 0; i < 256; i++) {
            W[i] = 0;
        }
        for (int i = 255; i >= 0; i--) {
            long long j = (long long)i - st.appliedOffsets[i];
            if (0 <= j && j <= 255) {
                W[j] += g_v_hist[i];
            }
        }
    }
    // 7.
    const int N = 97344;
    float S = 0;
    for (int i = 0; i < 256; i++) {
        S += i * W[i];
    }
    int32_t mean = (int32_t)(S / N);
    float V = 0;
    for (int i = 0; i < 256; i++) {
        V += (i - S / N) * (i - S / N) * W[i];
    }
    V = V / N;
    int32_t stdDev = (int32_t)sqrtf(V);
    for (int i = 0; i < 256; i++) {
        if (W[i] == 0) {
            W[i] = 1e-05f;
        }
    }
    int32_t p1 = 0, p10 = 0, p50 = 0, p90 = 0, p99 = 0;
    bool has1 = false, has10 = false, has50 = false, has90 = false, has99 = false;
    int C = 0;
    for (int i = 0; i < 256; i++) {
        C += (int)W[i];
        if (!has1 && (double)C >= 973.44) {
            p1 = i;
            has1 = true;
        } else if (!has10 && (double)C >= 9734.4) {
            p10 = i;
            has10 = true;
        } else if (!has50 && (double)C >= 48672.0) {
            p50 = i;
            has50 = true;
        } else if (!has90 && (double)C >= 87609.6) {
            p90 = i;
            has90 = true;
        } else if (!has99 && (double)C >= 96370.56) {
            p99 = i;
            has99 = true;
        }
    }
    // 8.
    for (int i = 0; i < 256; i++) {
        g_v_hist[i] = g_v_hist[i] / 97344;
    }
    float min = 97344.0f;
    float max = -1.0f;
    for (int i = 0; i < 256; i++) {
        if (g_v_hist[i] < min) {
            min = g_v_hist[i];
        }
        if (g_v_hist[i] > max) {
            max = g_v_hist[i];
        }
    }
    float range = max - min;
    bool valid = false;
    if (!((double)range < 1e-10)) {
        float P[256];
        for (int i = 0; i < 256; i++) {
            float t = (g_v_hist[i] - min) / range;
            if (t < 0) {
                t = 0;
            }
            P[i] = sqrtf(t) * max;
        }
        float Q[256];
        float running = 0;
        for (int i = 0; i < 256; i++) {
            running = running + P[i];
            Q[i] = running;
        }
        for (int i = 0; i < 256; i++) {
            double power = pow(i / 255.0, (double)(1 - Q[i] / Q[255]));
            rec.curve[i] = reference_truncate((float)(power * 255.0));
        }
        for (int i = 0; i < 20; i++) {
            rec.curve[i] = i;
        }
        float w_max = (float)(rec.strength * 0.35 / 100);
        for (int i = 20; i <= 255; i++) {
            float w;
            if (i <= 49) {
                w = (i - 20) * w_max / 30;
            } else {
                w = w_max;
            }
            rec.curve[i] = reference_truncate(w * rec.curve[i] + (1 - w) * i);
        }
        // 9.
        rec.mean = mean;
        rec.stdDev = stdDev;
        rec.p50 = p50;
        rec.p1 = p1;
        rec.p99 = p99;
        rec.p10 = p10;
        rec.p90 = p90;
        // 10.
        if (mean >= 71 && mean <= 149 && stdDev >= 26 && stdDev <= 89 && p50 - mean >= -29 &&
            p50 - mean <= 29 && p50 >= 51 && p50 <= 179 && p90 >= 131 && p90 <= 229) {
            valid = p1 <= 79 && p10 >= 11 && p10 <= 119;
        } else {
            valid = mean >= 151 && mean <= 169 && stdDev >= 26 && stdDev <= 59 && p50 - mean >= -24 &&
                    p50 - mean <= 19 && p50 >= 51 && p50 <= 179 && p90 >= 131 && p90 <= 229 && p10 >= 11 &&
                    p10 <= 119 && p1 <= 89;
        }
        for (int i = 0; i < 256; i++) {
            st.newOffsets[i] = valid ? rec.curve[i] - i : 0;
        }
    }
    // 11.
    rec.valid = valid ? 1 : 0;
    return true;
}

#endif
