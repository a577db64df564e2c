// Decoding of the network's outputs into candidate boxes.
#include <cmath>

#include <gtest/gtest.h>

#include "detector/box_decoding.h"

namespace {

const DecodeParams kParams = {0.65f, 0.1f, 0.2f, 416, 234};

// One prior per entry, face probabilities given, zero regressions.
struct Outputs {
    std::vector<float> scores;
    std::vector<float> boxes;
    std::vector<Prior> priors;

    void add(const Prior &prior, float face, const std::array<float, 4> &regression = {0, 0, 0, 0}) {
        priors.push_back(prior);
        scores.push_back(1.0f - face);
        scores.push_back(face);
        boxes.insert(boxes.end(), regression.begin(), regression.end());
    }
    bool decode(std::vector<FaceBox> &out, const DecodeParams &params = kParams) const {
        return decode_boxes(scores.data(), scores.size(), boxes.data(), boxes.size(), priors,
                            static_cast<int32_t>(priors.size()), params, out);
    }
};

TEST(Decoding, ScoreExactlyAtTheThresholdIsDroppedAndJustAboveIsKept) {
    Outputs o;
    o.add({0.5f, 0.5f, 0.1f, 0.1f}, 0.65f);
    o.add({0.3f, 0.3f, 0.1f, 0.1f}, std::nextafter(0.65f, 1.0f));
    o.add({0.7f, 0.7f, 0.1f, 0.1f}, 0.2f);
    std::vector<FaceBox> out;
    ASSERT_TRUE(o.decode(out));
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].score, std::nextafter(0.65f, 1.0f));
    EXPECT_FLOAT_EQ(out[0].x1, (0.3f - 0.05f) * 416);
}

TEST(Decoding, ZeroRegressionGivesThePriorBoxInFramePixels) {
    Outputs o;
    o.add({0.5f, 0.5f, 0.25f, 0.5f}, 0.9f);
    std::vector<FaceBox> out;
    ASSERT_TRUE(o.decode(out));
    ASSERT_EQ(out.size(), 1u);
    EXPECT_FLOAT_EQ(out[0].x1, 0.375f * 416);
    EXPECT_FLOAT_EQ(out[0].x2, 0.625f * 416);
    EXPECT_FLOAT_EQ(out[0].y1, 0.25f * 234);
    EXPECT_FLOAT_EQ(out[0].y2, 0.75f * 234);
    EXPECT_FLOAT_EQ(out[0].score, 0.9f);
}

TEST(Decoding, RegressionShiftsByVarianceTimesPriorSizeAndScalesExponentially) {
    Outputs o;
    // Centre moves by 0.1 x 2 x w and 0.1 x -1 x h; sizes grow by e^(0.2 x ln 2 / 0.2) = 2 and shrink by
    // half.
    const float ln2 = std::log(2.0f);
    o.add({0.5f, 0.5f, 0.1f, 0.2f}, 0.8f, {2.0f, -1.0f, ln2 / 0.2f, -ln2 / 0.2f});
    std::vector<FaceBox> out;
    ASSERT_TRUE(o.decode(out));
    ASSERT_EQ(out.size(), 1u);
    const float cx = 0.5f + 0.02f, cy = 0.5f - 0.02f, w = 0.2f, h = 0.1f;
    EXPECT_NEAR(out[0].x1, (cx - w / 2) * 416, 1e-3);
    EXPECT_NEAR(out[0].x2, (cx + w / 2) * 416, 1e-3);
    EXPECT_NEAR(out[0].y1, (cy - h / 2) * 234, 1e-3);
    EXPECT_NEAR(out[0].y2, (cy + h / 2) * 234, 1e-3);
}

TEST(Decoding, CornersAreClippedToTheFrame) {
    Outputs o;
    o.add({0.02f, 0.98f, 0.2f, 0.2f}, 0.99f);
    std::vector<FaceBox> out;
    ASSERT_TRUE(o.decode(out));
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].x1, 0.0f);
    EXPECT_EQ(out[0].y2, 234.0f);
    EXPECT_FLOAT_EQ(out[0].x2, 0.12f * 416);
    EXPECT_FLOAT_EQ(out[0].y1, 0.88f * 234);
}

TEST(Decoding, CandidatesKeepPriorOrderAndScaleToTheImageSize) {
    Outputs o;
    o.add({0.2f, 0.5f, 0.1f, 0.1f}, 0.7f);
    o.add({0.8f, 0.5f, 0.1f, 0.1f}, 0.95f);
    DecodeParams params = kParams;
    params.imageWidth = 480;
    params.imageHeight = 320;
    std::vector<FaceBox> out;
    ASSERT_TRUE(o.decode(out, params));
    ASSERT_EQ(out.size(), 2u);
    EXPECT_FLOAT_EQ(out[0].x1, 0.15f * 480);
    EXPECT_FLOAT_EQ(out[1].x1, 0.75f * 480);
    EXPECT_FLOAT_EQ(out[1].y2, 0.55f * 320);
}

TEST(Decoding, OutputsShorterThanThePriorsAreRefusedUnread) {
    Outputs o;
    o.add({0.5f, 0.5f, 0.1f, 0.1f}, 0.9f);
    o.add({0.5f, 0.5f, 0.1f, 0.1f}, 0.9f);
    std::vector<FaceBox> out;
    // One value short in either output, or more anchors than priors.
    EXPECT_FALSE(decode_boxes(o.scores.data(), o.scores.size() - 1, o.boxes.data(), o.boxes.size(), o.priors,
                              2, kParams, out));
    EXPECT_FALSE(decode_boxes(o.scores.data(), o.scores.size(), o.boxes.data(), o.boxes.size() - 1, o.priors,
                              2, kParams, out));
    EXPECT_FALSE(decode_boxes(o.scores.data(), 6, o.boxes.data(), 12, o.priors, 3, kParams, out));
    EXPECT_FALSE(decode_boxes(nullptr, 0, nullptr, 0, o.priors, 2, kParams, out));
    EXPECT_TRUE(out.empty());
    // Longer outputs are fine: only numAnchors entries are read.
    EXPECT_TRUE(decode_boxes(o.scores.data(), o.scores.size(), o.boxes.data(), o.boxes.size(), o.priors, 1,
                             kParams, out));
    EXPECT_EQ(out.size(), 1u);
}

}  // namespace
