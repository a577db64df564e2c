#include "detector/nms.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

float face_box_area(const FaceBox &box) {
    return (box.y2 - box.y1 + 1) * (box.x2 - box.x1 + 1);
}

float face_box_iou(const FaceBox &a, float areaA, const FaceBox &b) {
    const float ix1 = std::max(a.x1, b.x1);
    const float iy1 = std::max(a.y1, b.y1);
    const float ix2 = std::min(a.x2, b.x2);
    const float iy2 = std::min(a.y2, b.y2);
    const float ih = iy2 - iy1 + 1;
    if (ih <= 0) {
        return 0.0f;
    }
    const float iw = ix2 - ix1 + 1;
    if (iw <= 0) {
        return 0.0f;
    }
    const float inter = ih * iw;
    return inter / (areaA + face_box_area(b) - inter);
}

void non_maximum_suppression(std::vector<FaceBox> &input, std::vector<FaceBox> &output, int32_t type,
                             float iouThreshold, NmsScratch &scratch) {
    // Unstable on purpose: the order among equal scores is left open, and the
    // introspective sort is what the detector has always used.
    std::sort(input.begin(), input.end(),
              [](const FaceBox &a, const FaceBox &b) { return a.score > b.score; });
    if (input.empty()) {
        return;
    }

    std::vector<int32_t> &merged = scratch.merged;
    std::vector<FaceBox> &cluster = scratch.cluster;
    merged.assign(input.size(), 0);

    for (size_t i = 0; i < input.size(); ++i) {
        if (merged[i] != 0) {
            continue;
        }
        merged[i] = 1;
        cluster.clear();
        cluster.push_back(input[i]);

        const FaceBox &seed = input[i];
        const float areaI = face_box_area(seed);
        for (size_t j = i + 1; j < input.size(); ++j) {
            if (merged[j] != 0) {
                continue;
            }
            if (face_box_iou(seed, areaI, input[j]) > iouThreshold) {
                merged[j] = 1;
                cluster.push_back(input[j]);
            }
        }

        switch (type) {
            case HARD_NMS:
                output.push_back(cluster.front());
                break;
            case BLENDING_NMS: {
                float total = 0.0f;
                for (const FaceBox &member : cluster) {
                    total += expf(member.score);
                }
                FaceBox blended = {0.0f, 0.0f, 0.0f, 0.0f, 0.0f};
                for (const FaceBox &member : cluster) {
                    const float rate = expf(member.score) / total;
                    blended.x1 += member.x1 * rate;
                    blended.y1 += member.y1 * rate;
                    blended.x2 += member.x2 * rate;
                    blended.y2 += member.y2 * rate;
                    blended.score += member.score * rate;
                }
                output.push_back(blended);
                break;
            }
            default:
                printf("wrong type of nms.");
                exit(-1);
        }
    }
}

void non_maximum_suppression(std::vector<FaceBox> &input, std::vector<FaceBox> &output, int32_t type,
                             float iouThreshold) {
    NmsScratch scratch;
    non_maximum_suppression(input, output, type, iouThreshold, scratch);
}
