// The detector's arithmetic: anchor priors for the two input sizes the daemon
// sees (the initial 480x320 and the 416x234 stream), decoding of the network's
// outputs into candidate boxes, and non-maximum suppression (clustering against
// the seed, hard and blending merges, the unknown-type exit).
#include <unistd.h>

#include <cmath>

#include <gtest/gtest.h>

#include "detector/box_decoding.h"
#include "detector/face_result.h"
#include "detector/nms.h"
#include "detector/priors.h"

namespace {

// One prior per entry, face probabilities given.
struct Outputs {
    std::vector<float> scores, boxes;
    std::vector<Prior> priors;

    void add(const Prior &prior, float face, const std::array<float, 4> &regression = {0, 0, 0, 0}) {
        priors.push_back(prior);
        scores.push_back(1.0f - face);
        scores.push_back(face);
        boxes.insert(boxes.end(), regression.begin(), regression.end());
    }
    bool decode(std::vector<FaceBox> &out, const DecodeParams &params) const {
        return decode_boxes(scores.data(), scores.size(), boxes.data(), boxes.size(), priors,
                            static_cast<int32_t>(priors.size()), params, out);
    }
};

constexpr float kIou = 0.3f;

FaceBox box(float x1, float y1, float x2, float y2, float score) {
    return FaceBox{x1, y1, x2, y2, score};
}

void expect_box_eq(const FaceBox &a, const FaceBox &b) {
    EXPECT_EQ((std::vector<float>{a.x1, a.y1, a.x2, a.y2, a.score}),
              (std::vector<float>{b.x1, b.y1, b.x2, b.y2, b.score}));
}

}  // namespace

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

TEST(Decoding, ThresholdIsStrictAndCandidatesKeepPriorOrderInImagePixels) {
    Outputs o;
    o.add({0.5f, 0.5f, 0.1f, 0.1f}, 0.65f);  // exactly the threshold: dropped
    o.add({0.2f, 0.5f, 0.1f, 0.1f}, std::nextafter(0.65f, 1.0f));
    o.add({0.7f, 0.7f, 0.1f, 0.1f}, 0.2f);
    o.add({0.8f, 0.5f, 0.25f, 0.5f}, 0.95f);  // zero regression: the prior box itself
    // Centre moved by variance x offset x prior size; size scaled by exp(variance x offset): doubled, halved.
    o.add({0.5f, 0.5f, 0.1f, 0.2f}, 0.8f, {2.0f, -1.0f, std::log(2.0f) / 0.2f, -std::log(2.0f) / 0.2f});
    DecodeParams params = {0.65f, 0.1f, 0.2f, 416, 234};
    for (const auto &[w, h] : {std::pair(416, 234), std::pair(480, 320)}) {
        params.imageWidth = w;
        params.imageHeight = h;
        std::vector<FaceBox> out;
        ASSERT_TRUE(o.decode(out, params));
        ASSERT_EQ(out.size(), 3u);
        EXPECT_EQ(out[0].score, std::nextafter(0.65f, 1.0f));
        EXPECT_FLOAT_EQ(out[0].x1, 0.15f * w);
        EXPECT_FLOAT_EQ(out[1].x1, 0.675f * w);
        EXPECT_FLOAT_EQ(out[1].x2, 0.925f * w);
        EXPECT_FLOAT_EQ(out[1].y1, 0.25f * h);
        EXPECT_FLOAT_EQ(out[1].y2, 0.75f * h);
        EXPECT_FLOAT_EQ(out[1].score, 0.95f);
        const float moved[] = {0.42f * w, 0.43f * h, 0.62f * w, 0.53f * h};
        EXPECT_NEAR(out[2].x1, moved[0], 1e-3 * w);
        EXPECT_NEAR(out[2].y1, moved[1], 1e-3 * h);
        EXPECT_NEAR(out[2].x2, moved[2], 1e-3 * w);
        EXPECT_NEAR(out[2].y2, moved[3], 1e-3 * h);
    }
}

// The frame loop's integer faces: corners toward zero, as a float-to-int
// conversion does, never rounded; a unit of its own, so this test builds no detector.
TEST(FaceResults, CornersAreTruncatedTowardZeroAndTheScoreCopied) {
    const FaceResult r = face_result_from_box(FaceBox{10.9f, 0.999f, 415.6f, 233.5f, 0.875f});
    EXPECT_EQ((std::vector<int>{r.x1, r.y1, r.x2, r.y2}), (std::vector<int>{10, 0, 415, 233}));
    EXPECT_EQ(r.score, 0.875f);
    EXPECT_EQ(face_result_from_box(FaceBox{-0.9f, -1.5f, 1.0f, 2.0f, 0.5f}).y1, -1);
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
            std::vector<FaceBox> in = {c.a, c.b}, out;
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
    const FaceBox a = box(0, 0, 39, 39, 0.9f), b = box(15, 0, 54, 39, 0.8f), c = box(30, 0, 69, 39, 0.7f);
    ASSERT_GT(face_box_iou(a, face_box_area(a), b), kIou);
    ASSERT_GT(face_box_iou(b, face_box_area(b), c), kIou);
    ASSERT_LE(face_box_iou(a, face_box_area(a), c), kIou);
    std::vector<FaceBox> in = {c, b, a}, out;
    non_maximum_suppression(in, out, HARD_NMS, kIou);
    ASSERT_EQ(out.size(), 2u);
    expect_box_eq(out[0], a);
    expect_box_eq(out[1], c);
}

TEST(SuppressionDeathTest, UnknownTypeWithCandidatesEndsTheProcess) {
    // The default (fork) style, safe in this thread-less binary: the "threadsafe" one
    // re-executes it, which qemu's user mode cannot. Without candidates the type is not read.
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
