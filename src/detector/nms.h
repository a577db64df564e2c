/*
 * Non-maximum suppression: merges each cluster of overlapping candidates into
 * one face, either keeping the best box (hard) or averaging the cluster with
 * softmax weights of the scores (blending).
 */
#ifndef FACEDET_DETECTOR_NMS_H
#define FACEDET_DETECTOR_NMS_H

#include <cstdint>
#include <vector>

#include "detector/face_box.h"

// Working lists kept by the caller between frames so that suppression does
// not allocate once they have grown to the usual number of candidates.
struct NmsScratch {
    std::vector<int32_t> merged;   // one flag per candidate
    std::vector<FaceBox> cluster;  // the seed and the candidates merged into it
};

// Overlap of two boxes with the "+ 1" pixel convention on float coordinates:
// boxes that only touch along an edge still overlap by one pixel row. 0 when
// the intersection is empty. areaA is a's own (y2 - y1 + 1) x (x2 - x1 + 1).
float face_box_iou(const FaceBox &a, float areaA, const FaceBox &b);
float face_box_area(const FaceBox &box);

// Sorts input by score, highest first (in place, equal scores in no defined
// order), then appends one record per cluster to output, in descending order
// of the seeds' scores. Candidates join a cluster when their overlap with the
// cluster's seed is strictly above iouThreshold; they are never compared with
// other members. type is HARD_NMS or BLENDING_NMS; any other type ends the
// process with status 255 once there is a cluster to merge, since only a
// programming error can pass one.
void non_maximum_suppression(std::vector<FaceBox> &input, std::vector<FaceBox> &output, int32_t type,
                             float iouThreshold, NmsScratch &scratch);
void non_maximum_suppression(std::vector<FaceBox> &input, std::vector<FaceBox> &output, int32_t type,
                             float iouThreshold);

#endif
