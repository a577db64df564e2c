#include "detector/box_decoding.h"

#include <cmath>

namespace {

template <typename T>
T clip01(T v) {
    if (v < T(0)) {
        return T(0);
    }
    if (v > T(1)) {
        return T(1);
    }
    return v;
}

}  // namespace

bool decode_boxes(const float *scores, size_t scoreCount, const float *boxes, size_t boxCount,
                  const std::vector<Prior> &priors, int32_t numAnchors, const DecodeParams &params,
                  std::vector<FaceBox> &candidates) {
    if (numAnchors < 0) {
        return false;
    }
    const size_t anchors = static_cast<size_t>(numAnchors);
    if (priors.size() < anchors || scoreCount / 2 < anchors || boxCount / 4 < anchors ||
        (anchors > 0 && (scores == nullptr || boxes == nullptr))) {
        return false;
    }

    for (size_t n = 0; n < anchors; ++n) {
        const float p = scores[2 * n + 1];
        if (!(p > params.scoreThreshold)) {
            continue;
        }
        const Prior &prior = priors[n];
        const float *b = boxes + 4 * n;
        const float cx = prior[0] + (params.centerVariance * b[0]) * prior[2];
        const float cy = prior[1] + (params.centerVariance * b[1]) * prior[3];
        const float w = expf(b[2] * params.sizeVariance) * prior[2];
        const float h = expf(b[3] * params.sizeVariance) * prior[3];

        // Corners in double, as the reference arithmetic does; the half-size
        // constant is a double, which promotes the whole expression.
        const double x1 = clip01(cx - w * 0.5);
        const double y1 = clip01(cy - h * 0.5);
        const double x2 = clip01(cx + w * 0.5);
        const double y2 = clip01(cy + h * 0.5);

        FaceBox box;
        box.x1 = static_cast<float>(x1 * static_cast<double>(params.imageWidth));
        box.y1 = static_cast<float>(y1 * static_cast<double>(params.imageHeight));
        box.x2 = static_cast<float>(x2 * static_cast<double>(params.imageWidth));
        box.y2 = static_cast<float>(y2 * static_cast<double>(params.imageHeight));
        box.score = clip01(p);
        candidates.push_back(box);
    }
    return true;
}
