/*
 * Turns the network's two outputs into candidate face boxes: every prior whose
 * face probability is above the threshold, its regression applied, scaled to
 * the frame's pixels.
 */
#ifndef FACEDET_DETECTOR_BOX_DECODING_H
#define FACEDET_DETECTOR_BOX_DECODING_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "detector/face_box.h"
#include "detector/priors.h"

struct DecodeParams {
    float scoreThreshold;  // a face needs a probability strictly above it
    float centerVariance;
    float sizeVariance;
    int32_t imageWidth;  // pixels the normalised boxes are scaled to
    int32_t imageHeight;
};

// scores holds two values per prior (background, face), boxes four regression
// values per prior, both in prior order. Appends one FaceBox per prior above
// the threshold to candidates.
//
// Returns false, and appends nothing, when either array or the prior list is
// shorter than numAnchors requires: a model whose outputs do not match the
// priors must not be read past its end.
bool decode_boxes(const float *scores, size_t scoreCount, const float *boxes, size_t boxCount,
                  const std::vector<Prior> &priors, int32_t numAnchors, const DecodeParams &params,
                  std::vector<FaceBox> &candidates);

#endif
