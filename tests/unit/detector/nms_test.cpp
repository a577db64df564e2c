// Non-maximum suppression: clustering against the seed, hard and blending
// merges, thresholds and the unknown-type exit.
#include <unistd.h>

#include <cmath>

#include <gtest/gtest.h>

#include "detector/nms.h"

namespace {

constexpr float kIou = 0.3f;

FaceBox box(float x1, float y1, float x2, float y2, float score) {
    return FaceBox{x1, y1, x2, y2, score};
}

void expect_box_eq(const FaceBox &a, const FaceBox &b) {
    EXPECT_EQ((std::vector<float>{a.x1, a.y1, a.x2, a.y2, a.score}),
              (std::vector<float>{b.x1, b.y1, b.x2, b.y2, b.score}));
}

TEST(Suppression, MergesOnlyAboveTheThresholdIdenticalAndTouchingBoxesIncluded) {
    const struct {
        FaceBox a, b;
        float iou;
        size_t out;
    } cases[] = {
        {box(10, 20, 50, 70, 0.8f), box(10, 20, 50, 70, 0.8f), kIou, 1},  // identical: IoU 1
        {box(0, 0, 9, 9, 0.9f), box(0, 0, 9, 4, 0.8f), 0.5f, 2},          // IoU exactly 0.5: kept apart
        {box(0, 0, 9, 9, 0.9f), box(0, 0, 9, 4, 0.8f), 0.49f, 1},
        {box(0, 0, 9, 9, 0.9f), box(0, 9, 9, 18, 0.8f), 0.05f, 1},  // touching edges share a row
    };
    for (const auto &c : cases) {
        for (int32_t type : {HARD_NMS, BLENDING_NMS}) {
            std::vector<FaceBox> in = {c.a, c.b};
            std::vector<FaceBox> out;
            non_maximum_suppression(in, out, type, c.iou);
            ASSERT_EQ(out.size(), c.out) << "type " << type << ", threshold " << c.iou;
            if (type == HARD_NMS) {
                expect_box_eq(out[0], c.a);
            }
        }
    }
}

TEST(Suppression, BlendingWeightsBySoftmax) {
    std::vector<FaceBox> in = {box(14, 14, 54, 54, 0.66f), box(10, 10, 50, 50, 0.99f)}, out;
    non_maximum_suppression(in, out, BLENDING_NMS, kIou);
    ASSERT_EQ(out.size(), 1u);
    const float wBest = std::exp(0.99f) / (std::exp(0.99f) + std::exp(0.66f));  // nearer the better box
    EXPECT_NEAR(out[0].x1, 10 * wBest + 14 * (1 - wBest), 1e-4);
    EXPECT_NEAR(out[0].score, 0.99f * wBest + 0.66f * (1 - wBest), 1e-6);
    // Equal scores: the exact average box.
    in = {box(10, 20, 50, 60, 0.75f), box(14, 22, 54, 66, 0.75f)};
    out.clear();
    non_maximum_suppression(in, out, BLENDING_NMS, kIou);
    ASSERT_EQ(out.size(), 1u);
    expect_box_eq(out[0], box(12, 21, 52, 63, 0.75f));
}

TEST(Suppression, CandidatesAreComparedWithTheSeedOnly) {
    // b overlaps both a and c; c does not overlap a. c must form its own
    // cluster although it overlaps b, a member of a's cluster.
    const FaceBox a = box(0, 0, 39, 39, 0.9f);
    const FaceBox b = box(15, 0, 54, 39, 0.8f);
    const FaceBox c = box(30, 0, 69, 39, 0.7f);
    ASSERT_GT(face_box_iou(a, face_box_area(a), b), kIou);
    ASSERT_GT(face_box_iou(b, face_box_area(b), c), kIou);
    ASSERT_LE(face_box_iou(a, face_box_area(a), c), kIou);
    std::vector<FaceBox> in = {c, b, a};
    std::vector<FaceBox> out;
    non_maximum_suppression(in, out, HARD_NMS, kIou);
    ASSERT_EQ(out.size(), 2u);
    expect_box_eq(out[0], a);
    expect_box_eq(out[1], c);
}

TEST(SuppressionDeathTest, UnknownTypeWithCandidatesEndsTheProcess) {
    // The default (fork only) style: the "threadsafe" one re-executes the
    // binary, which user-mode emulation of the ARM build cannot do, and this
    // binary starts no threads.
    // With no candidates the type is never looked at.
    std::vector<FaceBox> none, out;
    non_maximum_suppression(none, out, 3, kIou);
    EXPECT_TRUE(out.empty());
    std::vector<FaceBox> in = {box(0, 0, 10, 10, 0.9f)};
    // The text goes to stdout; send stdout to stderr to see it.
    EXPECT_EXIT(
        {
            fflush(stdout);
            dup2(STDERR_FILENO, STDOUT_FILENO);
            non_maximum_suppression(in, out, 0, kIou);
        },
        testing::ExitedWithCode(255), "^wrong type of nms\\.$");
}

}  // namespace
