// Anchor priors: counts, feature maps, order and clipping for the two input
// sizes the daemon sees (the initial 480x320 and the 416x234 stream).
#include <gtest/gtest.h>

#include "detector/priors.h"

namespace {

const std::vector<float> kStrides = {8, 16, 32, 64};
const std::vector<std::vector<float>> kMinBoxes = {{10, 16, 24}, {32, 48}, {64, 96}, {128, 192, 256}};

struct PriorLists {
    std::vector<std::vector<float>> featureMapSizes, shrinkages;
    std::vector<Prior> priors;
    int32_t count = 0;
    PriorLists &make(int32_t width, int32_t height, const std::vector<float> &strides = kStrides,
                     const std::vector<std::vector<float>> &minBoxes = kMinBoxes) {
        count = generate_priors(width, height, strides, minBoxes, featureMapSizes, shrinkages, priors);
        return *this;
    }
};

TEST(Priors, CountsAndMapsOfBothInputSizesAndRegenerationReplacesThem) {
    PriorLists lists;
    // 480x320, then the stream's size with its partial cells rounded up, then
    // back: each time the lists are replaced, never appended to.
    const struct {
        int32_t w, h, count;
        std::vector<float> mapW, mapH;
    } sizes[] = {{480, 320, 8820, {60, 30, 15, 8}, {40, 20, 10, 5}},
                 {416, 234, 5752, {52, 26, 13, 7}, {30, 15, 8, 4}},
                 {480, 320, 8820, {60, 30, 15, 8}, {40, 20, 10, 5}}};
    for (const auto &s : sizes) {
        lists.make(s.w, s.h);
        EXPECT_EQ(lists.count, s.count);
        EXPECT_EQ(lists.priors.size(), static_cast<size_t>(s.count));
        ASSERT_EQ(lists.featureMapSizes.size(), 2u);
        EXPECT_EQ(lists.featureMapSizes[0], s.mapW);
        EXPECT_EQ(lists.featureMapSizes[1], s.mapH);
        EXPECT_EQ(lists.shrinkages, (std::vector<std::vector<float>>{kStrides, kStrides}));
    }
    EXPECT_EQ(lists.priors, PriorLists().make(480, 320).priors);
    // Only four maps are visited whatever the table lengths.
    std::vector<float> strides = kStrides;
    strides.push_back(128);
    std::vector<std::vector<float>> minBoxes = kMinBoxes;
    minBoxes.push_back({300});
    EXPECT_EQ(PriorLists().make(480, 320, strides, minBoxes).count, 8820);
}

TEST(Priors, OrderIsMapRowColumnSizeAndValuesPastTheEdgeAreClipped) {
    const std::vector<Prior> initial = PriorLists().make(480, 320).priors;
    const Prior expected[] = {{0.5f / 60, 0.5f / 40, 10.0f / 480, 10.0f / 320},
                              {0.5f / 60, 0.5f / 40, 16.0f / 480, 16.0f / 320},
                              {1.5f / 60, 0.5f / 40, 10.0f / 480, 10.0f / 320}};
    // Prior 3 is the next column; prior 180 starts row 1 after 60 columns.
    const size_t at[] = {0, 1, 3};
    for (size_t i = 0; i < 3; ++i) {
        for (int v = 0; v < 4; ++v) {
            EXPECT_FLOAT_EQ(initial[at[i]][v], expected[i][v]) << "prior " << at[i] << ", value " << v;
        }
    }
    EXPECT_FLOAT_EQ(initial[60 * 3][1], 1.5f / 40);
    EXPECT_EQ(initial[60 * 3][0], initial[0][0]);

    const std::vector<Prior> stream = PriorLists().make(416, 234).priors;
    // Row 29 of the 30-row stride-8 map: 29.5 / 29.25 is past 1; row 28 is not.
    EXPECT_EQ(stream[29 * 52 * 3][1], 1.0f);
    EXPECT_FLOAT_EQ(stream[28 * 52 * 3][1], static_cast<float>(28.5 / 29.25));
    EXPECT_FLOAT_EQ(stream[51 * 3][0], 51.5f / 52);
    // The largest prior (256 px) is taller than 234 px: h clipped, w not.
    EXPECT_FLOAT_EQ(stream.back()[2], 256.0f / 416);
    EXPECT_EQ(stream.back()[3], 1.0f);
    for (const Prior &p : stream) {
        for (float v : p) {
            ASSERT_TRUE(v >= 0.0f && v <= 1.0f);
        }
    }
}

}  // namespace
