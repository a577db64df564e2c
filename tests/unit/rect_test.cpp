// Rectangle geometry of auto framing, with the integer behaviour each
// operation keeps on purpose.
#include <gtest/gtest.h>

#include "autoframe_test_util.h"
#include "faceDet/rect.h"

TEST(RectArea, IsWidthTimesHeightWithSign) {
    EXPECT_EQ(rect_area({5, 7, 30, 20}), 600);
    EXPECT_EQ(rect_area({0, 0, -30, 20}), -600);
    EXPECT_EQ(rect_area({0, 0, 0, 20}), 0);
}

TEST(RectIntersectionArea, OverlapOfTwoRectangles) {
    EXPECT_EQ(rect_intersection_area({0, 0, 100, 100}, {50, 60, 100, 100}), 50 * 40);
    EXPECT_EQ(rect_intersection_area({10, 10, 20, 20}, {0, 0, 100, 100}), 400);  // contained
    EXPECT_EQ(rect_intersection_area({0, 0, 100, 100}, {10, 10, 20, 20}), 400);
}

TEST(RectIntersectionArea, ZeroSideOrApartGivesZeroAndTouchingComesOutZero) {
    EXPECT_EQ(rect_intersection_area({0, 0, 0, 100}, {0, 0, 100, 100}), 0);
    EXPECT_EQ(rect_intersection_area({0, 0, 100, 100}, {0, 0, 100, 0}), 0);
    EXPECT_EQ(rect_intersection_area({0, 0, 100, 100}, {101, 0, 100, 100}), 0);
    EXPECT_EQ(rect_intersection_area({0, 0, 100, 100}, {0, 101, 100, 100}), 0);
    EXPECT_EQ(rect_intersection_area({0, 0, 100, 100}, {100, 0, 100, 100}), 0);
    EXPECT_EQ(rect_intersection_area({0, 0, 100, 100}, {0, 100, 100, 100}), 0);
}

TEST(RectIntersectionArea, NegativeSidesCountByTheirSize) {
    // w = min(100, 2) - 5 = -3, h = min(100, 15) - 5 = 10: the sides are taken as sizes.
    EXPECT_EQ(rect_intersection_area({0, 0, 100, 100}, {5, 5, -3, 10}), 30);
}

TEST(RectExpandToPerson, NarrowFaceMeasuresByTheMeanOfItsSides) {
    // 100 / 120 is 0 in integers: size (100 + 120) / 2 = 110; three sizes
    // wide, 2.85 tall, 0.6 above (300 - 66 in float).
    EXPECT_EQ(rect_expand_to_person({500, 300, 100, 120}, 1.0f, 0.6f, 1.25f), (Rect_t{390, 234, 330, 313}));
    EXPECT_EQ(rect_expand_to_person({500, 300, 100, 199}, 1.0f, 0.6f, 1.25f), (Rect_t{351, 210, 447, 424}));
}

TEST(RectExpandToPerson, AnyBoxAtLeastAsWideAsTallMeasuresByItsWidth) {
    EXPECT_EQ(rect_expand_to_person({500, 300, 120, 100}, 1.0f, 0.6f, 1.25f), (Rect_t{380, 228, 360, 342}));
    // Nearly twice as wide still divides to 1: size 199, not the mean 149.
    EXPECT_EQ(rect_expand_to_person({500, 300, 199, 100}, 1.0f, 0.6f, 1.25f), (Rect_t{301, 180, 597, 567}));
    // A zero height divides to 0: the mean of 100 and 0.
    EXPECT_EQ(rect_expand_to_person({500, 300, 100, 0}, 1.0f, 0.6f, 1.25f), (Rect_t{450, 270, 150, 142}));
}

TEST(RectExpandToPerson, ClippedAtTheEdgesOnePixelInsideRightAndBottom) {
    // Left: starts at 0 and loses the 80 pixels cut off.
    EXPECT_EQ(rect_expand_to_person({20, 300, 100, 100}, 1.0f, 0.6f, 1.25f), (Rect_t{0, 240, 220, 285}));
    // Right: 1790 + 180 passes 1920, so the right side ends at 1919.
    EXPECT_EQ(rect_expand_to_person({1850, 300, 60, 60}, 1.0f, 0.6f, 1.25f), (Rect_t{1790, 264, 129, 171}));
    // Top and bottom alike.
    EXPECT_EQ(rect_expand_to_person({900, 20, 100, 100}, 1.0f, 0.6f, 1.25f), (Rect_t{800, 0, 300, 245}));
    EXPECT_EQ(rect_expand_to_person({900, 1000, 100, 100}, 1.0f, 0.6f, 1.25f), (Rect_t{800, 940, 300, 139}));
    // Exactly reaching 1920 is clipped too.
    EXPECT_EQ(rect_expand_to_person({1720, 300, 100, 100}, 1.0f, 0.6f, 1.25f).width, 1919 - 1620);
}

TEST(RectExpandToPerson, FactorsScaleEachSide) {
    // No margins: the face box itself, size 100.
    EXPECT_EQ(rect_expand_to_person({500, 300, 100, 100}, 0.0f, 0.0f, 0.0f), (Rect_t{500, 300, 100, 100}));
    EXPECT_EQ(rect_expand_to_person({500, 300, 100, 100}, 0.5f, 1.0f, 2.0f), (Rect_t{450, 200, 200, 400}));
}

TEST(RectOverlapArea, HasNoZeroSizeTestAndKeepsTheSign) {
    EXPECT_EQ(rect_overlap_area({0, 0, 100, 100}, {50, 60, 100, 100}), 2000);
    EXPECT_EQ(rect_overlap_area({0, 0, 100, 100}, {101, 0, 100, 100}), 0);
    EXPECT_EQ(rect_overlap_area({0, 0, 100, 100}, {0, 101, 100, 100}), 0);
    // Where rect_intersection_area gives 30, this gives the signed -3 * 10.
    EXPECT_EQ(rect_overlap_area({0, 0, 100, 100}, {5, 5, -3, 10}), -30);
}

TEST(RectUnionArea, SumOfAreasLessTheOverlap) {
    EXPECT_EQ(rect_union_area({0, 0, 100, 100}, {50, 60, 100, 100}), 20000 - 2000);
    EXPECT_EQ(rect_union_area({0, 0, 100, 100}, {200, 0, 10, 10}), 10100);
}

TEST(RectIou, IntegerQuotientIsZeroUnlessIdentical) {
    EXPECT_EQ(rect_iou({0, 0, 100, 100}, {0, 0, 100, 100}), 1.0f);
    EXPECT_EQ(rect_iou({0, 0, 100, 100}, {1, 0, 100, 100}), 0.0f);  // 9900 / 10100
    EXPECT_EQ(rect_iou({10, 10, 20, 20}, {0, 0, 100, 100}), 0.0f);  // contained
    EXPECT_EQ(rect_iou({0, 0, 10, 10}, {50, 50, 10, 10}), 0.0f);
    EXPECT_EQ(rect_iou({0, 0, 0, 0}, {0, 0, 0, 0}), 0.0f);  // no union at all
}

TEST(RectBoundingUnion, SmallestRectangleHoldingBothIgnoringEmptyOnes) {
    EXPECT_EQ(rect_bounding_union({10, 20, 30, 40}, {100, 5, 10, 10}), (Rect_t{10, 5, 100, 55}));
    EXPECT_EQ(rect_bounding_union({10, 20, 0, 40}, {100, 5, 10, 10}), (Rect_t{100, 5, 10, 10}));
    EXPECT_EQ(rect_bounding_union({10, 20, 30, 40}, {100, 5, 10, 0}), (Rect_t{10, 20, 30, 40}));
    EXPECT_EQ(rect_bounding_union({10, 20, 0, 40}, {100, 5, 10, 0}), (Rect_t{0, 0, 0, 0}));
}

TEST(RectMerge, MixesMinimaAndMaximaFieldByField) {
    // Least x, greatest y, least width, greatest height.
    EXPECT_EQ(rect_merge({10, 20, 30, 40}, {5, 25, 50, 35}), (Rect_t{5, 25, 30, 40}));
    EXPECT_EQ(rect_merge({0, 0, 0, 0}, {5, 25, 50, 35}), (Rect_t{5, 25, 50, 35}));
    EXPECT_EQ(rect_merge({5, 25, 50, 35}, {0, 0, 0, 0}), (Rect_t{5, 25, 50, 35}));
    // Only an all-zero record is passed over; a zero-width one merges.
    EXPECT_EQ(rect_merge({0, 0, 0, 5}, {5, 25, 50, 35}), (Rect_t{0, 25, 0, 35}));
}

TEST(RectMergeList, FoldsTheLastRecordWithYAndHeightIntoTheAccumulator) {
    Rect_t list[kRectListLength] = {};
    list[0] = {10, 20, 30, 40};
    list[1] = {5, 0, 50, 60};  // y 0: passed over, the current record stays list[0]
    list[2] = {7, 30, 20, 10};
    list[3] = {1, 90, 1, 0};  // height 0: passed over
    Rect_t acc = {0, 0, 0, 0};
    rect_merge_list(list, acc);
    EXPECT_EQ(acc, (Rect_t{7, 30, 20, 40}));

    // The accumulator's own value takes part.
    Rect_t seeded = {2, 50, 100, 5};
    rect_merge_list(list, seeded);
    EXPECT_EQ(seeded, (Rect_t{2, 50, 20, 40}));

    // Nothing qualifying: merging all-zero records leaves acc as it was.
    const Rect_t none[kRectListLength] = {};
    Rect_t kept = {3, 4, 5, 6};
    rect_merge_list(none, kept);
    EXPECT_EQ(kept, (Rect_t{3, 4, 5, 6}));
}
