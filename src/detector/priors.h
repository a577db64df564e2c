/*
 * Anchor priors of the face network: one box per feature-map cell and prior
 * size, normalised to the network input. The network's outputs are laid out
 * in exactly this order (feature map, row, column, size), so the two must
 * match one to one.
 */
#ifndef FACEDET_DETECTOR_PRIORS_H
#define FACEDET_DETECTOR_PRIORS_H

#include <array>
#include <cstdint>
#include <vector>

// {cx, cy, w, h}, each clipped to 0..1.
using Prior = std::array<float, 4>;

// The network has four detection heads; the loop visits exactly these four
// maps whatever the length of the tables handed in.
constexpr int kNumFeatureMaps = 4;

// Rebuilds featureMapSizes and shrinkages (each two lists: width direction,
// then height direction) and priors for an input of inputWidth x inputHeight,
// from the strides and prior sizes of the four maps. The lists are emptied
// first but keep their storage. Returns the number of priors.
int32_t generate_priors(int32_t inputWidth, int32_t inputHeight, const std::vector<float> &strides,
                        const std::vector<std::vector<float>> &minBoxes,
                        std::vector<std::vector<float>> &featureMapSizes,
                        std::vector<std::vector<float>> &shrinkages, std::vector<Prior> &priors);

#endif
