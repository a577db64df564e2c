/*
 * One face as the frame loop receives it: integer corners in pixels of the
 * analysed frame and the detector's score. Kept apart from the process's
 * detector so that code converting or filtering faces (the box filter, its
 * tests) does not construct the detector and load its model before main.
 */
#ifndef FACEDET_DETECTOR_FACE_RESULT_H
#define FACEDET_DETECTOR_FACE_RESULT_H

#include <cstdint>

#include "detector/face_box.h"

typedef struct {
    int32_t x1;
    int32_t y1;
    int32_t x2;
    int32_t y2;
    float score;  // 0..1
} FaceResult;

// Coordinates truncated toward zero, as a float-to-int conversion does
// (415.6 becomes 415, never 416); the score is copied.
FaceResult face_result_from_box(const FaceBox &box);

#endif
