// Decoding of the network's outputs into candidate boxes.
#include <cmath>

#include <gtest/gtest.h>

#include "detector/box_decoding.h"

namespace {

const DecodeParams kParams = {0.65f, 0.1f, 0.2f, 416, 234};

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
    bool decode(std::vector<FaceBox> &out, size_t scoreCount, size_t boxCount, int32_t anchors,
                const DecodeParams &params = kParams) const {
        return decode_boxes(scores.data(), scoreCount, boxes.data(), boxCount, priors, anchors, params, out);
    }
    bool decode(std::vector<FaceBox> &out, const DecodeParams &params = kParams) const {
        return decode(out, scores.size(), boxes.size(), static_cast<int32_t>(priors.size()), params);
    }
};

TEST(Decoding, ThresholdIsStrictAndCandidatesKeepPriorOrderInImagePixels) {
    Outputs o;
    o.add({0.5f, 0.5f, 0.1f, 0.1f}, 0.65f);  // exactly the threshold: dropped
    o.add({0.2f, 0.5f, 0.1f, 0.1f}, std::nextafter(0.65f, 1.0f));
    o.add({0.7f, 0.7f, 0.1f, 0.1f}, 0.2f);
    o.add({0.8f, 0.5f, 0.25f, 0.5f}, 0.95f);  // zero regression: the prior box itself
    DecodeParams params = kParams;
    for (const auto &[w, h] : {std::pair(416, 234), std::pair(480, 320)}) {
        params.imageWidth = w;
        params.imageHeight = h;
        std::vector<FaceBox> out;
        ASSERT_TRUE(o.decode(out, params));
        ASSERT_EQ(out.size(), 2u);
        EXPECT_EQ(out[0].score, std::nextafter(0.65f, 1.0f));
        EXPECT_FLOAT_EQ(out[0].x1, 0.15f * w);
        EXPECT_FLOAT_EQ(out[1].x1, 0.675f * w);
        EXPECT_FLOAT_EQ(out[1].x2, 0.925f * w);
        EXPECT_FLOAT_EQ(out[1].y1, 0.25f * h);
        EXPECT_FLOAT_EQ(out[1].y2, 0.75f * h);
        EXPECT_FLOAT_EQ(out[1].score, 0.95f);
    }
}

TEST(Decoding, OutputsShorterThanThePriorsAreRefusedUnread) {
    Outputs o;
    o.add({0.5f, 0.5f, 0.1f, 0.1f}, 0.9f);
    o.add({0.5f, 0.5f, 0.1f, 0.1f}, 0.9f);
    std::vector<FaceBox> out;
    // One value short in either output, or more anchors than priors.
    EXPECT_FALSE(o.decode(out, 3, 8, 2));
    EXPECT_FALSE(o.decode(out, 4, 7, 2));
    EXPECT_FALSE(o.decode(out, 6, 12, 3));
    EXPECT_FALSE(decode_boxes(nullptr, 0, nullptr, 0, o.priors, 2, kParams, out));
    EXPECT_TRUE(out.empty());
    // Longer outputs are fine: only numAnchors entries are read.
    EXPECT_TRUE(o.decode(out, 4, 8, 1));
    EXPECT_EQ(out.size(), 1u);
}

}  // namespace
