/*
 * Scoring of detections against annotated faces: one-to-one matching at an
 * overlap of at least 0.5, counted by face size in the analysis frame.
 */
#ifndef FACEDET_TOOLS_FACE_MATCHING_H
#define FACEDET_TOOLS_FACE_MATCHING_H

#include <array>
#include <cstddef>
#include <vector>

// A box in pixels of the analysis frame, top-left corner plus size.
struct EvalBox {
    double x;
    double y;
    double w;
    double h;
};

// Plain intersection over union (no pixel "+ 1": annotations are continuous).
double eval_iou(const EvalBox &a, const EvalBox &b);

// Size classes by the smaller side in the analysis frame: under 16 px (faces
// the frame loop drops anyway), 16-31, 32-63, 64 and more.
constexpr int kSizeClasses = 4;
int size_class(const EvalBox &box);
const char *size_class_name(int sizeClass);

struct MatchCounts {
    std::array<size_t, kSizeClasses> faces{};       // valid annotated faces
    std::array<size_t, kSizeClasses> found{};       // of those, matched by a detection
    std::array<size_t, kSizeClasses> detections{};  // detections not matched to an invalid face
    std::array<size_t, kSizeClasses> correct{};     // of those, matched to a valid face
};

// Matches one image's detections (best first) to its faces: each detection
// takes the unmatched face it overlaps most, if that overlap is at least 0.5.
// A detection of a face marked invalid counts neither way. Adds to counts.
void match_faces(const std::vector<EvalBox> &detections, const std::vector<EvalBox> &faces,
                 const std::vector<bool> &invalid, MatchCounts &counts);

#endif
