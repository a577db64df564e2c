/*
 * Choice of the person the camera follows, once per analysed frame.
 *
 * Every face grows into a person rectangle. On the first frame with faces,
 * and again once the move decision has given up a lost target, the face
 * nearest the frame centre is taken; from then on the followed person is
 * found again in each frame by a weighted score of overlap (0.8), detector
 * score similarity (0.5) and face area similarity (0.3) with the last choice,
 * so that the camera does not jump between people. The result is left in
 * personCenterRect for the move decision.
 */
#ifndef FACEDET_TARGET_SELECTION_H
#define FACEDET_TARGET_SELECTION_H

#include <cstdint>
#include <vector>

#include "faceDet/rect.h"

// Faces the per-face tables (person, face_score) have room for.
constexpr int kMaxFaces = 10;

// What target selection keeps from frame to frame. Frame thread only.
struct TargetSelectionState {
    int32_t faceNum = 0;                // faces of the current frame (at most kMaxFaces)
    Rect_t person[kMaxFaces] = {};      // person rectangle of face i, rebuilt with two or more faces
    Rect_t personCenterRect = {};       // the followed person, top-left form
    float targetReferenceScore = 0.0f;  // detector score of the chosen face
    float targetReferenceArea = 0.0f;   // width * height of the chosen face box (not the person)
    bool targetLost = true;             // next faces are acquired afresh by nearness to the centre
};

// The daemon's one selection state, and its fields under their own names.
extern TargetSelectionState g_targetSelection;
extern int32_t &faceNum;
extern Rect_t (&person)[kMaxFaces];
extern Rect_t &personCenterRect;
extern float &targetReferenceScore;
extern float &targetReferenceArea;
extern bool &targetLost;

// Detector score of detection i, at index i of the detector's result (not of
// the accepted faces); filled by the frame loop, entries of skipped detections
// keep older values.
extern double face_score[kMaxFaces];

// Person rectangle factors of the frame path: one face size either side, 0.6
// above, 1.25 below.
constexpr float kPersonSideFactor = 1.0f;
constexpr float kPersonTopFactor = 0.6f;
constexpr float kPersonBottomFactor = 1.25f;

// One frame of target selection. faces are the accepted boxes in the
// 1920x1080 space in detection order, scores the table indexed like them
// (kMaxFaces entries). Stores the face count; with no face it stops there and
// the frame belongs to the no-face step of the move decision. Allocates
// nothing.
void select_target(TargetSelectionState &state, const std::vector<Rect_t> &faces, const double *scores);

#endif
