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
    bool decode(std::vector<FaceBox> &out, const DecodeParams &params) const {
        return decode_boxes(scores.data(), scores.size(), boxes.data(), boxes.size(), priors,
                            static_cast<int32_t>(priors.size()), params, out);
    }
};

TEST(Decoding, ThresholdIsStrictAndCandidatesKeepPriorOrderInImagePixels) {
    Outputs o;
    o.add({0.5f, 0.5f, 0.1f, 0.1f}, 0.65f);  // exactly the threshold: dropped
    o.add({0.2f, 0.5f, 0.1f, 0.1f}, std::nextafter(0.65f, 1.0f));
    o.add({0.7f, 0.7f, 0.1f, 0.1f}, 0.2f);
    o.add({0.8f, 0.5f, 0.25f, 0.5f}, 0.95f);  // zero regression: the prior box itself
    // Centre moved by variance x offset x prior size; size scaled by exp(variance x offset): doubled, halved.
    o.add({0.5f, 0.5f, 0.1f, 0.2f}, 0.8f, {2.0f, -1.0f, std::log(2.0f) / 0.2f, -std::log(2.0f) / 0.2f});
    DecodeParams params = kParams;
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

}  // namespace
