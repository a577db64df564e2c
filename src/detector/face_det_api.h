/*
 * What the frame loop uses of the face detector: the one detector of the
 * process and the per-frame call that returns integer face rectangles.
 */
#ifndef FACEDET_DETECTOR_FACE_DET_API_H
#define FACEDET_DETECTOR_FACE_DET_API_H

#include <cstdint>
#include <vector>

#include "detector/face_result.h"
#include "detector/slim_face_detector.h"

// Built before main from "./slim-320-quant-ADMM-50.mnn" in the working
// directory, for 480x320 input that follows the frames' size; used by the
// frame thread only.
extern SlimFaceDetector g_faceDetector;

// Runs g_faceDetector on width x height packed BGR and returns its faces, best
// first. Frame thread only.
std::vector<FaceResult> FaceDet_Detect(const uint8_t *image, int32_t width, int32_t height);

// The algorithm version, "FDTUM_1.0.0". Any thread.
const char *FaceDet_GetVersion();

#endif
