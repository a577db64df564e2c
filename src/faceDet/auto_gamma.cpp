#include "faceDet/auto_gamma.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "faceDet/frame_geometry.h"

static_assert(kGammaPixels == kLumaBytes, "the statistics divide by the analysis frame's pixels");

int32_t cur_isuse = 0;
int32_t pre_isuse = 0;
uint8_t reverseFlag = 0;

namespace {

// The darkest levels are never changed, and the blend fades in above them.
constexpr int kIdentityLevels = 20;
constexpr int kLastFadeLevel = 49;
constexpr int kFadeLevels = 30;

// 1, 10, 50, 90 and 99 percent of the frame's pixels, in the order they are set.
constexpr int kPercentiles = 5;
constexpr double kPercentileLimits[kPercentiles] = {973.44, 9734.4, 48672.0, 87609.6, 96370.56};

// Empty bins of the working histogram are counted as this (it truncates to 0).
constexpr float kEmptyBin = 1e-05f;

// Q[i] = P[0] + ... + P[i] in float. An empty input has no curve; a 256-level
// histogram never is one, the check stays for the sake of the message.
bool running_sum(const float *P, int count, float *Q) {
    if (count <= 0) {
        printf("输入错误！！！\n");
        return false;
    }
    float sum = 0.0f;
    for (int i = 0; i < count; ++i) {
        sum += P[i];
        Q[i] = sum;
    }
    return true;
}

// Truncation of a blended curve level. The value w x curve[i] + (1 - w) x i
// is at most |w_max| x 255 + 255 in size, below 1.92e9 for every int32
// strength, so the clamp never changes a result. It is here because a float
// out of the int32 range makes the conversion undefined; the low end keeps 255
// in hand so that curve[i] - i (the offsets) stays an int32 as well.
int32_t truncate_blend(float value) {
    constexpr double kLow = static_cast<double>(INT32_MIN) + 255.0;
    if (std::isnan(value)) {
        return 0;
    }
    if (static_cast<double>(value) >= 2147483648.0) {
        return INT32_MAX;
    }
    if (static_cast<double>(value) < kLow) {
        return static_cast<int32_t>(kLow);
    }
    return static_cast<int32_t>(value);
}

}  // namespace

void gamma_statistics(const float W[kGammaLevels], GammaStats *stats) {
    const int N = kGammaPixels;
    float S = 0.0f;
    for (int i = 0; i < kGammaLevels; ++i) {
        S += i * W[i];
    }
    stats->mean = static_cast<int32_t>(S / N);

    float V = 0.0f;
    for (int i = 0; i < kGammaLevels; ++i) {
        const float deviation = i - S / N;
        V += deviation * deviation * W[i];
    }
    V = V / N;
    stats->stdDev = static_cast<int32_t>(std::sqrt(V));

    // Each bin adds its whole pixels only, and one bin sets at most one
    // percentile: when a bin crosses several limits, the higher percentiles
    // land on the following bins. The peer's limits were tuned on this.
    int32_t *const percentile[kPercentiles] = {&stats->p1, &stats->p10, &stats->p50, &stats->p90,
                                               &stats->p99};
    for (int32_t *p : percentile) {
        *p = 0;
    }
    int next = 0;
    int C = 0;
    for (int i = 0; i < kGammaLevels; ++i) {
        const float bin = W[i] == 0.0f ? kEmptyBin : W[i];
        C += static_cast<int>(bin);
        if (next < kPercentiles && static_cast<double>(C) >= kPercentileLimits[next]) {
            *percentile[next] = i;
            ++next;
        }
    }
}

bool gamma_curve(float hist[kGammaLevels], int32_t strength, int32_t curve[kGammaLevels]) {
    for (int i = 0; i < kGammaLevels; ++i) {
        hist[i] = hist[i] / kGammaPixels;
    }
    float minBin = 97344.0f;
    float maxBin = -1.0f;
    for (int i = 0; i < kGammaLevels; ++i) {
        minBin = std::min(minBin, hist[i]);
        maxBin = std::max(maxBin, hist[i]);
    }
    const float range = maxBin - minBin;
    if (static_cast<double>(range) < 1e-10) {
        return false;  // a flat picture has no tone to spread
    }

    float P[kGammaLevels];
    for (int i = 0; i < kGammaLevels; ++i) {
        P[i] = std::sqrt(std::max(0.0f, (hist[i] - minBin) / range)) * maxBin;
    }
    float Q[kGammaLevels];
    if (!running_sum(P, kGammaLevels, Q)) {
        return false;
    }

    // Q[255] > 0 (the fullest bin has P = maxBin > 0), so the exponent lies in
    // 0..1 and the level in 0..255.
    for (int i = 0; i < kGammaLevels; ++i) {
        const float exponent = 1 - Q[i] / Q[kGammaLevels - 1];
        const float level = static_cast<float>(std::pow(i / 255.0, static_cast<double>(exponent)) * 255.0);
        curve[i] = static_cast<int32_t>(level);
    }
    for (int i = 0; i < kIdentityLevels; ++i) {
        curve[i] = i;
    }
    // strength x 0.35 is a double product: no int arithmetic that could overflow.
    const float w_max = static_cast<float>(strength * 0.35 / 100);
    for (int i = kIdentityLevels; i < kGammaLevels; ++i) {
        const float w = i <= kLastFadeLevel ? (i - kIdentityLevels) * w_max / kFadeLevels : w_max;
        curve[i] = truncate_blend(w * curve[i] + (1 - w) * i);
    }
    return true;
}

bool gamma_verdict(const GammaStats &s) {
    const int32_t skew = s.p50 - s.mean;
    const bool ordinaryScene = s.mean >= 71 && s.mean <= 149 && s.stdDev >= 26 && s.stdDev <= 89 &&
                               skew >= -29 && skew <= 29 && s.p50 >= 51 && s.p50 <= 179 && s.p90 >= 131 &&
                               s.p90 <= 229;
    if (ordinaryScene) {
        // The bright-scene set is not tried once the ordinary one holds.
        return s.p1 <= 79 && s.p10 >= 11 && s.p10 <= 119;
    }
    return s.mean >= 151 && s.mean <= 169 && s.stdDev >= 26 && s.stdDev <= 59 && skew >= -24 && skew <= 19 &&
           s.p50 >= 51 && s.p50 <= 179 && s.p90 >= 131 && s.p90 <= 229 && s.p10 >= 11 && s.p10 <= 119 &&
           s.p1 <= 89;
}

void gamma_handshake(GammaState &state, const GammaRecord &record) {
    state.cur_isuse = record.isuse;
    if (state.cur_isuse == 0) {
        state.reverseFlag = 0;
        if (state.pre_isuse == 1) {
            // The peer dropped its curve: nothing is applied, nothing pending.
            std::fill(state.appliedOffsets, state.appliedOffsets + kGammaLevels, 0);
            std::fill(state.newOffsets, state.newOffsets + kGammaLevels, 0);
        }
    } else {
        state.reverseFlag = 1;
        if (record.mode == 0 && record.valid == 1) {
            // The peer has taken the last accepted curve into use.
            std::copy(state.newOffsets, state.newOffsets + kGammaLevels, state.appliedOffsets);
        }
    }
    state.pre_isuse = state.cur_isuse;
}

int32_t gamma_answer(GammaState &state, GammaRecord &record, float hist[kGammaLevels]) {
    float W[kGammaLevels];
    if (state.reverseFlag == 0) {
        memcpy(W, hist, sizeof W);
    } else {
        printf("-----------------------------------gamma 反算-----------------------------------\n");
        std::fill(W, W + kGammaLevels, 0.0f);
        for (int i = kGammaLevels - 1; i >= 0; --i) {
            // In 64 bits: an offset table holds whatever curve was accepted.
            const int64_t j = static_cast<int64_t>(i) - state.appliedOffsets[i];
            if (j >= 0 && j < kGammaLevels) {
                W[j] += hist[i];
            }
        }
    }
    GammaStats stats;
    gamma_statistics(W, &stats);

    bool valid = false;
    if (gamma_curve(hist, record.strength, record.curve)) {
        record.mean = stats.mean;
        record.stdDev = stats.stdDev;
        record.p50 = stats.p50;
        record.p1 = stats.p1;
        record.p99 = stats.p99;
        record.p10 = stats.p10;
        record.p90 = stats.p90;
        valid = gamma_verdict(stats);
        for (int i = 0; i < kGammaLevels; ++i) {
            state.newOffsets[i] = valid ? record.curve[i] - i : 0;
        }
    }
    record.valid = valid ? 1 : 0;
    return record.valid;
}

GammaStepResult auto_gamma_step(GammaState &state, GammaRecord &threadCopy, float hist[kGammaLevels],
                                const GammaIo &io) {
    // A read that timed out leaves the previous content, which is then used.
    io.read(&threadCopy);
    gamma_handshake(state, threadCopy);
    if (threadCopy.mode != 1) {
        return kGammaNoRequest;
    }
    gamma_answer(state, threadCopy, hist);
    if (io.write(&threadCopy) != 0) {
        printf("send data ok!!!\n");
        return kGammaAnswered;
    }
    printf("send data failed!!!\n");
    return kGammaWriteFailed;
}
