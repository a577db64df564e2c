// Rectangle geometry of auto framing, with the integer behaviour each
// operation keeps on purpose.
#include <gtest/gtest.h>

#include "autoframe_test_util.h"
#include "faceDet/rect.h"

TEST(Rect, AreasKeepTheirIntegerBehaviour) {
    const Rect_t a = {0, 0, 100, 100};
    struct Case {
        Rect_t other;
        int32_t intersection, overlap, unionArea;
    } cases[] = {
        {{50, 60, 100, 100}, 2000, 2000, 18000}, {{10, 10, 20, 20}, 400, 400, 10000},  // contained
        {{101, 0, 100, 100}, 0, 0, 20000},                                             // apart
        {{100, 0, 100, 100}, 0, 0, 20000},                                             // touching
        {{0, 0, 100, 0}, 0, 0, 10000},                                                 // zero side
        {{5, 5, -3, 10}, 30, -30, 10000},  // a negative side counts by its size, the overlap keeps the sign
    };
    for (const Case &c : cases) {
        EXPECT_EQ(rect_intersection_area(a, c.other), c.intersection) << c.other.x;
        EXPECT_EQ(rect_overlap_area(a, c.other), c.overlap) << c.other.x;
        EXPECT_EQ(rect_union_area(a, c.other), c.unionArea) << c.other.x;
    }
    EXPECT_EQ(rect_area({0, 0, -30, 20}), -600);
    // The integer quotient is 0 unless identical.
    EXPECT_EQ(rect_iou(a, a), 1.0f);
    EXPECT_EQ(rect_iou(a, {1, 0, 100, 100}), 0.0f);
    EXPECT_EQ(rect_iou({0, 0, 0, 0}, {0, 0, 0, 0}), 0.0f);
}

TEST(Rect, ExpandToPersonMeasuresFaceScalesAndClips) {
    struct Case {
        Rect_t face;
        float side, above, below;
        Rect_t person;
    } cases[] = {
        // 100 / 120 is 0 in integers: size the mean 110; three sizes wide, 2.85 tall, 0.6 above.
        {{500, 300, 100, 120}, 1.0f, 0.6f, 1.25f, {390, 234, 330, 313}},
        {{500, 300, 120, 100}, 1.0f, 0.6f, 1.25f, {380, 228, 360, 342}},  // wide: by the width
        {{500, 300, 199, 100}, 1.0f, 0.6f, 1.25f, {301, 180, 597, 567}},  // still divides to 1
        {{500, 300, 100, 0}, 1.0f, 0.6f, 1.25f, {450, 270, 150, 142}},    // height 0: the mean
        {{20, 300, 100, 100}, 1.0f, 0.6f, 1.25f, {0, 240, 220, 285}},     // clipped at each edge,
        {{1850, 300, 60, 60}, 1.0f, 0.6f, 1.25f, {1790, 264, 129, 171}},  // one pixel inside right
        {{900, 20, 100, 100}, 1.0f, 0.6f, 1.25f, {800, 0, 300, 245}},
        {{900, 1000, 100, 100}, 1.0f, 0.6f, 1.25f, {800, 940, 300, 139}},   // and bottom
        {{1720, 300, 100, 100}, 1.0f, 0.6f, 1.25f, {1620, 240, 299, 285}},  // reaching 1920 exactly
        {{500, 300, 100, 100}, 0.5f, 1.0f, 2.0f, {450, 200, 200, 400}},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(rect_expand_to_person(c.face, c.side, c.above, c.below), c.person) << c.face.x;
    }
}
