/*
 * One face candidate or result of the detector, in pixels of the analysed
 * frame, and the two ways overlapping candidates are merged.
 */
#ifndef FACEDET_DETECTOR_FACE_BOX_H
#define FACEDET_DETECTOR_FACE_BOX_H

#include <cstdint>

struct FaceBox {
    float x1;  // top-left corner
    float y1;
    float x2;  // bottom-right corner
    float y2;
    float score;  // face probability 0..1 (after blending, a weighted mean of such)
};

// Suppression types; the detector always asks for blending.
enum : int32_t {
    HARD_NMS = 1,
    BLENDING_NMS = 2,
};

#endif
