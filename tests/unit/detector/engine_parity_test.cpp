// The camera's quantised network (MNN) against its float export (OpenCV DNN)
// on the same input: labelled photos and frames of the sample videos, each
// scaled to the stream size and fed to both engines as the same bytes.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <numeric>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include "detector/box_decoding.h"
#include "detector/inference_engine.h"
#include "detector/nms.h"
#include "detector/priors.h"

namespace {

const std::string kShared = FACEDET_SHARED_DIR;
constexpr int kWidth = 416, kHeight = 234;

// Every fourth labelled photo (lines "name width height faces folder") and a
// frame every twelve of two scenes with people, scaled to the stream size.
std::vector<cv::Mat> parity_frames() {
    std::vector<cv::Mat> frames;
    const auto add = [&](const cv::Mat &picture) {
        picture.empty() ? void() : cv::resize(picture, frames.emplace_back(), cv::Size(kWidth, kHeight));
    };
    std::ifstream list(kShared + "/data/faces/images.txt");
    std::string line;
    for (int i = 0; std::getline(list, line); ++i) {
        i % 4 == 0 ? add(cv::imread(kShared + "/data/faces/images/" + line.substr(0, line.find(' '))))
                   : void();
    }
    for (const char *video : {"meeting_room_four_seated.mp4", "two_people_walking_toward_camera.mp4"}) {
        cv::VideoCapture capture(kShared + "/data/videos/" + video);
        cv::Mat picture;
        for (int i = 0; capture.read(picture); ++i) {
            i % 12 == 0 ? add(picture) : void();
        }
    }
    return frames;
}

// The face probability of every prior, and the faces after decoding and
// suppression as the detector finds them.
struct EngineRun {
    std::vector<float> faceScores;
    std::vector<FaceBox> faces, candidates;
};

EngineRun run_engine(InferenceEngine &engine, const cv::Mat &frame, const std::vector<Prior> &priors) {
    EngineRun r;
    EngineOutputs outputs;
    engine.prepare(frame.ptr<uint8_t>(), kWidth, kHeight);
    engine.run(&outputs);
    for (size_t n = 0; n < priors.size() && 2 * n + 1 < outputs.scoreCount; ++n) {
        r.faceScores.push_back(outputs.scores[2 * n + 1]);
    }
    decode_boxes(outputs.scores, outputs.scoreCount, outputs.boxes, outputs.boxCount, priors,
                 static_cast<int32_t>(priors.size()), DecodeParams{0.65f, 0.1f, 0.2f, kWidth, kHeight},
                 r.candidates);
    non_maximum_suppression(r.candidates, r.faces, BLENDING_NMS, 0.3f);
    return r;
}

// Whether `face` has a partner in `others` at IoU >= 0.5 (areas without the
// one-pixel convention).
bool matched(const FaceBox &face, const std::vector<FaceBox> &others) {
    return std::any_of(others.begin(), others.end(), [&](const FaceBox &o) {
        const float iw = std::min(face.x2, o.x2) - std::max(face.x1, o.x1);
        const float ih = std::min(face.y2, o.y2) - std::max(face.y1, o.y1);
        const float inter = iw > 0 && ih > 0 ? iw * ih : 0;
        const float areas = (face.x2 - face.x1) * (face.y2 - face.y1) + (o.x2 - o.x1) * (o.y2 - o.y1);
        return inter >= 0.5f * (areas - inter);
    });
}

TEST(EngineParity, BigFacesAreFoundByBothAndScoresStayWithinTheQuantisationBound) {
    const EngineInputFormat format = {{127, 127, 127}, {1.0f / 128, 1.0f / 128, 1.0f / 128}};
    const std::string model = kShared + "/models/slim-320-quant-ADMM-50.mnn";
    auto quantised = create_inference_engine(EngineKind::kMnn, model, 1, format);
    auto floating = create_inference_engine(EngineKind::kOpenCvDnn, model, 1, format);
    ASSERT_TRUE(quantised && quantised->ready() && floating && floating->ready());
    std::vector<std::vector<float>> featureMapSizes, shrinkages;
    std::vector<Prior> priors;
    generate_priors(kWidth, kHeight, {8, 16, 32, 64}, {{10, 16, 24}, {32, 48}, {64, 96}, {128, 192, 256}},
                    featureMapSizes, shrinkages, priors);

    const std::vector<cv::Mat> frames = parity_frames();
    ASSERT_GE(frames.size(), 40u);
    std::vector<float> diffs;
    size_t bigFaces = 0, bigUnmatched = 0;
    for (size_t f = 0; f < frames.size(); ++f) {
        const EngineRun q = run_engine(*quantised, frames[f], priors);
        const EngineRun x = run_engine(*floating, frames[f], priors);
        ASSERT_TRUE(q.faceScores.size() == priors.size() && x.faceScores.size() == priors.size());
        for (size_t n = 0; n < priors.size(); ++n) {
            diffs.push_back(std::fabs(q.faceScores[n] - x.faceScores[n]));
        }
        // A face of 32 px or more that either engine finds with a score of
        // 0.8 or more, the other finds too. Nearer the 0.65 threshold the
        // quantisation may take a face below it: on the 51 frames one such
        // face each way (0.78 in int8, 0.66 in float) has no partner.
        for (const auto &[mine, theirs] :
             {std::make_pair(&q.faces, &x.faces), std::make_pair(&x.faces, &q.faces)}) {
            for (const FaceBox &face : *mine) {
                if (std::min(face.x2 - face.x1, face.y2 - face.y1) >= 32 && face.score >= 0.8f) {
                    ++bigFaces;
                    bigUnmatched += !matched(face, *theirs);
                }
            }
        }
    }
    std::sort(diffs.begin(), diffs.end());
    const double meanDiff = std::accumulate(diffs.begin(), diffs.end(), 0.0) / double(diffs.size());
    auto quantile = [&](double q) { return diffs[static_cast<size_t>(q * double(diffs.size() - 1))]; };
    printf(
        "%zu frames, %zu priors: face score |int8 - float| mean %.5f, 99%% %.4f, 99.9%% %.4f, max %.3f; "
        "%zu of %zu big faces unmatched\n",
        frames.size(), diffs.size(), meanDiff, quantile(0.99), quantile(0.999), diffs.back(), bigUnmatched,
        bigFaces);
    EXPECT_GT(bigFaces, 40u);
    EXPECT_EQ(bigUnmatched, 0u);
    // Measured: mean 0.0022, 99 % of the priors within 0.025 (the bounds are
    // twice that). The differences are on the priors around faces, where the
    // int8 network scores lower. A swapped channel order or doubled contrast
    // in one engine stays within the bounds; another network, a scrambled
    // input layout or outputs out of prior order do not.
    EXPECT_LT(meanDiff, 0.005);
    EXPECT_LT(quantile(0.99), 0.05);
}

}  // namespace
