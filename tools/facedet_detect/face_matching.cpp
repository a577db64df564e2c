#include "face_matching.h"

#include <algorithm>

double eval_iou(const EvalBox &a, const EvalBox &b) {
    const double ix = std::min(a.x + a.w, b.x + b.w) - std::max(a.x, b.x);
    const double iy = std::min(a.y + a.h, b.y + b.h) - std::max(a.y, b.y);
    if (ix <= 0 || iy <= 0) {
        return 0.0;
    }
    const double inter = ix * iy;
    return inter / (a.w * a.h + b.w * b.h - inter);
}

int size_class(const EvalBox &box) {
    const double side = std::min(box.w, box.h);
    if (side < 16) {
        return 0;
    }
    if (side < 32) {
        return 1;
    }
    if (side < 64) {
        return 2;
    }
    return 3;
}

const char *size_class_name(int sizeClass) {
    static const char *const kNames[kSizeClasses] = {"under 16 px", "16-31 px", "32-63 px", "64 px and more"};
    return sizeClass >= 0 && sizeClass < kSizeClasses ? kNames[sizeClass] : "?";
}

void match_faces(const std::vector<EvalBox> &detections, const std::vector<EvalBox> &faces,
                 const std::vector<bool> &invalid, MatchCounts &counts) {
    std::vector<bool> taken(faces.size(), false);
    for (const EvalBox &det : detections) {
        double best = 0.5;
        long match = -1;
        for (size_t f = 0; f < faces.size(); ++f) {
            const double iou = taken[f] ? 0.0 : eval_iou(det, faces[f]);
            if (iou >= best) {
                best = iou;
                match = static_cast<long>(f);
            }
        }
        if (match >= 0) {
            taken[match] = true;
            if (invalid[match]) {
                continue;
            }
        }
        const int c = size_class(det);
        ++counts.detections[c];
        if (match >= 0) {
            ++counts.correct[c];
        }
    }
    for (size_t f = 0; f < faces.size(); ++f) {
        if (invalid[f]) {
            continue;
        }
        const int c = size_class(faces[f]);
        ++counts.faces[c];
        if (taken[f]) {
            ++counts.found[c];
        }
    }
}
