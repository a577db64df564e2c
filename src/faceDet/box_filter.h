/*
 * From the detector's faces to the boxes auto framing works with: faces
 * scored above 0.3 and at least 16 pixels either way in the 416x234 frame,
 * scaled to the 1920x1080 space of the camera's output.
 */
#ifndef FACEDET_BOX_FILTER_H
#define FACEDET_BOX_FILTER_H

#include <cstddef>
#include <vector>

#include "detector/face_result.h"
#include "faceDet/rect.h"
#include "faceDet/target_selection.h"

// The detector's faces that auto framing looks at, best first. The per-face
// tables (face_score, the person rectangles) have ten entries and are indexed
// by the detector's result index, so the result is bounded here, before any
// index is used; the faces dropped are the least confident.
constexpr size_t kMaxDetections = kMaxFaces;

// One box that passed the filter, in the analysis frame and in the output space.
struct AcceptedBox {
    Rect_t frame;   // x, y, w, h in the 416x234 frame
    Rect_t output;  // the same in 1920x1080
};

// Filters faces[0..min(size, kMaxDetections)) into `frameBoxes` and
// `outputBoxes` (cleared first; capacity kept) and stores each accepted face's
// score at its detector index in `scores` (kMaxDetections entries; entries of
// skipped faces keep their values). Logs each accepted box.
void filter_face_boxes(const std::vector<FaceResult> &faces, std::vector<Rect_t> &frameBoxes,
                       std::vector<Rect_t> &outputBoxes, double *scores);

// The output-space value of an analysis-frame coordinate: v * out / in in
// double precision, truncated toward zero.
int32_t scale_to_output(int32_t value, int outputSize, int frameSize);

#endif
