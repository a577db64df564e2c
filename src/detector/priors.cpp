#include "detector/priors.h"

#include <cmath>

namespace {

float clip01(float v) {
    if (v < 0.0f) {
        return 0.0f;
    }
    if (v > 1.0f) {
        return 1.0f;
    }
    return v;
}

}  // namespace

int32_t generate_priors(int32_t inputWidth, int32_t inputHeight, const std::vector<float> &strides,
                        const std::vector<std::vector<float>> &minBoxes,
                        std::vector<std::vector<float>> &featureMapSizes,
                        std::vector<std::vector<float>> &shrinkages, std::vector<Prior> &priors) {
    featureMapSizes.clear();
    shrinkages.clear();
    priors.clear();

    // The tables are the detector's constants; a shorter table would only come
    // from a programming error, and then the missing maps are left out rather
    // than read past the end.
    int maps = kNumFeatureMaps;
    if (static_cast<int>(strides.size()) < maps) {
        maps = static_cast<int>(strides.size());
    }
    if (static_cast<int>(minBoxes.size()) < maps) {
        maps = static_cast<int>(minBoxes.size());
    }

    const int32_t inputSizes[2] = {inputWidth, inputHeight};
    for (int32_t size : inputSizes) {
        std::vector<float> perStride;
        perStride.reserve(strides.size());
        for (float stride : strides) {
            perStride.push_back(ceilf(static_cast<float>(size) / stride));
        }
        featureMapSizes.push_back(std::move(perStride));
    }
    for (int d = 0; d < 2; ++d) {
        shrinkages.push_back(strides);
    }

    for (int m = 0; m < maps; ++m) {
        const float scaleW = static_cast<float>(inputWidth) / shrinkages[0][m];
        const float scaleH = static_cast<float>(inputHeight) / shrinkages[1][m];
        for (int j = 0; static_cast<float>(j) < featureMapSizes[1][m]; ++j) {
            for (int i = 0; static_cast<float>(i) < featureMapSizes[0][m]; ++i) {
                // The centre is computed in double and narrowed, the sizes in
                // float; the network was trained against exactly these values.
                const float cx = static_cast<float>((i + 0.5) / scaleW);
                const float cy = static_cast<float>((j + 0.5) / scaleH);
                for (float k : minBoxes[m]) {
                    const float w = k / static_cast<float>(inputWidth);
                    const float h = k / static_cast<float>(inputHeight);
                    priors.push_back(Prior{clip01(cx), clip01(cy), clip01(w), clip01(h)});
                }
            }
        }
    }
    return static_cast<int32_t>(priors.size());
}
