// Anchor priors for the two input sizes the daemon sees (the initial 480x320
// and the 416x234 stream): counts, maps, order and clipping.
#include <gtest/gtest.h>

#include "detector/priors.h"

namespace {

TEST(Priors, CountsMapsOrderAndClippingOfBothInputSizes) {
    std::vector<std::vector<float>> maps, shrinkages;
    std::vector<Prior> priors;
    // Five tables: only four maps are visited whatever the table lengths.
    const std::vector<float> strides = {8, 16, 32, 64, 128};
    const auto make = [&](int32_t w, int32_t h) {
        return generate_priors(w, h, strides, {{10, 16, 24}, {32, 48}, {64, 96}, {128, 192, 256}, {300}},
                               maps, shrinkages, priors);
    };
    // 480x320, then the stream's size with its partial cells rounded up, then
    // back: each time the lists are replaced, never appended to.
    const struct {
        int32_t w, h, count;
        std::vector<float> mapW, mapH;
    } sizes[] = {{480, 320, 8820, {60, 30, 15, 8, 4}, {40, 20, 10, 5, 3}},
                 {416, 234, 5752, {52, 26, 13, 7, 4}, {30, 15, 8, 4, 2}},
                 {480, 320, 8820, {60, 30, 15, 8, 4}, {40, 20, 10, 5, 3}}};
    for (const auto &s : sizes) {
        EXPECT_EQ(make(s.w, s.h), s.count);
        EXPECT_EQ(priors.size(), static_cast<size_t>(s.count));
        EXPECT_EQ(maps, (std::vector<std::vector<float>>{s.mapW, s.mapH}));
        EXPECT_EQ(shrinkages, (std::vector<std::vector<float>>{strides, strides}));
    }
    // Map, row, column, size: prior 3 is the next column, 180 starts row 1.
    const Prior initial[][2] = {{priors[0], {0.5f / 60, 0.5f / 40, 10.0f / 480, 10.0f / 320}},
                                {priors[1], {0.5f / 60, 0.5f / 40, 16.0f / 480, 16.0f / 320}},
                                {priors[3], {1.5f / 60, 0.5f / 40, 10.0f / 480, 10.0f / 320}},
                                {priors[180], {0.5f / 60, 1.5f / 40, 10.0f / 480, 10.0f / 320}}};
    make(416, 234);
    // Row 29 of the 30-row stride-8 map: 29.5 / 29.25 is past 1, row 28 not;
    // the largest prior (256 px) is taller than 234 px: h clipped, w not.
    const Prior stream[][2] = {
        {priors[29 * 52 * 3], {0.5f / 52, 1.0f, 10.0f / 416, 10.0f / 234}},
        {priors[28 * 52 * 3], {0.5f / 52, float(28.5 / 29.25), 10.0f / 416, 10.0f / 234}},
        {priors[51 * 3], {51.5f / 52, 0.5f / 29.25f, 10.0f / 416, 10.0f / 234}},
        {priors.back(), {6.5f / 6.5f, 3.5f / 3.65625f, 256.0f / 416, 1.0f}}};
    for (const auto &[got, want] : {std::make_pair(&initial[0], 4), std::make_pair(&stream[0], 4)}) {
        for (int i = 0; i < want; ++i) {
            for (int v = 0; v < 4; ++v) {
                EXPECT_FLOAT_EQ(got[i][0][v], got[i][1][v]) << "prior " << i << ", value " << v;
            }
        }
    }
    for (const Prior &p : priors) {
        for (float v : p) {
            ASSERT_TRUE(v >= 0.0f && v <= 1.0f);
        }
    }
}

}  // namespace
