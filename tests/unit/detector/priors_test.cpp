// Anchor priors: counts, feature maps, order and clipping for the two input
// sizes the daemon sees (the initial 480x320 and the 416x234 stream).
#include <gtest/gtest.h>

#include "detector/priors.h"

namespace {

const std::vector<float> kStrides = {8, 16, 32, 64};
const std::vector<std::vector<float>> kMinBoxes = {{10, 16, 24}, {32, 48}, {64, 96}, {128, 192, 256}};

struct PriorLists {
    std::vector<std::vector<float>> featureMapSizes;
    std::vector<std::vector<float>> shrinkages;
    std::vector<Prior> priors;
    int32_t count = 0;
};

PriorLists make_priors(int32_t width, int32_t height) {
    PriorLists lists;
    lists.count = generate_priors(width, height, kStrides, kMinBoxes, lists.featureMapSizes, lists.shrinkages,
                                  lists.priors);
    return lists;
}

// Index of the first prior of a cell: maps before m, then rows, then columns.
size_t prior_index(const PriorLists &lists, int m, int row, int column) {
    size_t index = 0;
    for (int k = 0; k < m; ++k) {
        index += static_cast<size_t>(lists.featureMapSizes[0][k] * lists.featureMapSizes[1][k]) *
                 kMinBoxes[k].size();
    }
    return index + (static_cast<size_t>(row) * static_cast<size_t>(lists.featureMapSizes[0][m]) + column) *
                       kMinBoxes[m].size();
}

TEST(Priors, InitialInputHas8820PriorsOnFourMaps) {
    const PriorLists lists = make_priors(480, 320);
    EXPECT_EQ(lists.count, 8820);
    EXPECT_EQ(lists.priors.size(), 8820u);
    ASSERT_EQ(lists.featureMapSizes.size(), 2u);
    EXPECT_EQ(lists.featureMapSizes[0], (std::vector<float>{60, 30, 15, 8}));
    EXPECT_EQ(lists.featureMapSizes[1], (std::vector<float>{40, 20, 10, 5}));
    ASSERT_EQ(lists.shrinkages.size(), 2u);
    EXPECT_EQ(lists.shrinkages[0], kStrides);
    EXPECT_EQ(lists.shrinkages[1], kStrides);
}

TEST(Priors, StreamInputHas5752PriorsWithPartialCellsRoundedUp) {
    const PriorLists lists = make_priors(416, 234);
    EXPECT_EQ(lists.count, 5752);
    EXPECT_EQ(lists.featureMapSizes[0], (std::vector<float>{52, 26, 13, 7}));
    EXPECT_EQ(lists.featureMapSizes[1], (std::vector<float>{30, 15, 8, 4}));
}

TEST(Priors, FirstCellHoldsOnePriorPerSizeInTableOrder) {
    const PriorLists lists = make_priors(480, 320);
    const Prior &first = lists.priors[0];
    EXPECT_FLOAT_EQ(first[0], 0.5f / 60);
    EXPECT_FLOAT_EQ(first[1], 0.5f / 40);
    EXPECT_FLOAT_EQ(first[2], 10.0f / 480);
    EXPECT_FLOAT_EQ(first[3], 10.0f / 320);
    const Prior &second = lists.priors[1];
    EXPECT_EQ(second[0], first[0]);
    EXPECT_EQ(second[1], first[1]);
    EXPECT_FLOAT_EQ(second[2], 16.0f / 480);
    EXPECT_FLOAT_EQ(second[3], 16.0f / 320);
    // The fourth prior is the next column of the same row.
    EXPECT_FLOAT_EQ(lists.priors[3][0], 1.5f / 60);
    EXPECT_EQ(lists.priors[3][1], first[1]);
    // Row 1 starts after the 60 columns of row 0.
    EXPECT_FLOAT_EQ(lists.priors[60 * 3][1], 1.5f / 40);
    EXPECT_EQ(lists.priors[60 * 3][0], first[0]);
}

TEST(Priors, CentresAndSizesPastTheEdgeAreClippedToOne) {
    const PriorLists lists = make_priors(416, 234);
    // Row 29 of the 30-row stride-8 map: 29.5 / 29.25 is past 1.
    const Prior &lastRow = lists.priors[prior_index(lists, 0, 29, 0)];
    EXPECT_EQ(lastRow[1], 1.0f);
    EXPECT_FLOAT_EQ(lastRow[0], 0.5f / 52);
    // Row 28 is still inside.
    EXPECT_FLOAT_EQ(lists.priors[prior_index(lists, 0, 28, 0)][1], static_cast<float>(28.5 / 29.25));
    // Last column of the 52-column map: 51.5 / 52, inside.
    EXPECT_FLOAT_EQ(lists.priors[prior_index(lists, 0, 0, 51)][0], 51.5f / 52);
    // The largest prior (256 px) is taller than 234 px: h clipped, w not.
    const Prior &last = lists.priors.back();
    EXPECT_FLOAT_EQ(last[2], 256.0f / 416);
    EXPECT_EQ(last[3], 1.0f);
    for (const Prior &p : lists.priors) {
        for (float v : p) {
            ASSERT_GE(v, 0.0f);
            ASSERT_LE(v, 1.0f);
        }
    }
}

TEST(Priors, RegenerationReplacesTheListsInsteadOfAppending) {
    PriorLists lists = make_priors(480, 320);
    const Prior firstOf480 = lists.priors[0];
    lists.count =
        generate_priors(416, 234, kStrides, kMinBoxes, lists.featureMapSizes, lists.shrinkages, lists.priors);
    EXPECT_EQ(lists.count, 5752);
    EXPECT_EQ(lists.priors.size(), 5752u);
    EXPECT_EQ(lists.featureMapSizes.size(), 2u);
    EXPECT_EQ(lists.shrinkages.size(), 2u);
    EXPECT_NE(lists.priors[0][0], firstOf480[0]);
    // And back: identical to a fresh generation.
    lists.count =
        generate_priors(480, 320, kStrides, kMinBoxes, lists.featureMapSizes, lists.shrinkages, lists.priors);
    EXPECT_EQ(lists.priors, make_priors(480, 320).priors);
}

TEST(Priors, OnlyFourMapsAreVisitedWhateverTheTableLength) {
    std::vector<float> strides = kStrides;
    strides.push_back(128);
    std::vector<std::vector<float>> minBoxes = kMinBoxes;
    minBoxes.push_back({300});
    std::vector<std::vector<float>> featureMapSizes, shrinkages;
    std::vector<Prior> priors;
    EXPECT_EQ(generate_priors(480, 320, strides, minBoxes, featureMapSizes, shrinkages, priors), 8820);
}

}  // namespace
