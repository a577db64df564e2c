// Rectangle geometry of auto framing.
#include "faceDet/rect.h"

#include <algorithm>
#include <cmath>

namespace {

// Products and sums are taken in 64 bits and kept to their low 32, the
// wrap of the camera's 32-bit arithmetic, without leaning on signed overflow.
inline int32_t low32(int64_t v) {
    return static_cast<int32_t>(static_cast<uint32_t>(v));
}

inline bool is_empty(const Rect_t &r) {
    return r.width == 0 || r.height == 0;
}

inline bool is_all_zero(const Rect_t &r) {
    return r.x == 0 && r.y == 0 && r.width == 0 && r.height == 0;
}

}  // namespace

int32_t rect_area(const Rect_t &r) {
    return low32(static_cast<int64_t>(r.width) * r.height);
}

int32_t rect_intersection_area(const Rect_t &a, const Rect_t &b) {
    if (is_empty(a) || is_empty(b)) {
        return 0;
    }
    if (a.x > b.x + b.width || b.x > a.x + a.width) {
        return 0;
    }
    if (a.y > b.y + b.height || b.y > a.y + a.height) {
        return 0;
    }
    const int32_t left = std::max(a.x, b.x);
    const int32_t top = std::max(a.y, b.y);
    const int32_t w = std::min(a.x + a.width, b.x + b.width) - left;
    const int32_t h = std::min(a.y + a.height, b.y + b.height) - top;
    return static_cast<int32_t>(std::fabs(static_cast<double>(w)) * std::fabs(static_cast<double>(h)));
}

Rect_t rect_expand_to_person(const Rect_t &face, float a, float b, float c) {
    // The width-to-height test divides as integers, so any box at least as
    // wide as tall measures by its width, every narrower one by the mean of
    // both sides. The detector's boxes were tuned against exactly this.
    const int32_t ratio = face.height == 0 ? 0 : face.width / face.height;
    const int32_t size = static_cast<float>(ratio) > 0.7f ? face.width : (face.width + face.height) / 2;
    const float s = static_cast<float>(size);

    Rect_t person;
    person.x = static_cast<int32_t>(static_cast<float>(face.x) - s * a);
    person.width = static_cast<int32_t>((a + a + 1.0f) * s);
    person.height = static_cast<int32_t>((b + 1.0f + c) * s);
    if (person.x < 0) {
        person.width = static_cast<int32_t>(static_cast<double>(person.width) - std::fabs(double(person.x)));
        person.x = 0;
    }
    // One pixel inside the frame on the right and at the bottom, as the
    // framing after it expects.
    if (person.x + person.width >= kOutputWidth) {
        person.width = kOutputWidth - 1 - person.x;
    }
    person.y = static_cast<int32_t>(static_cast<float>(face.y) - s * b);
    if (person.y < 0) {
        person.height =
            static_cast<int32_t>(static_cast<double>(person.height) - std::fabs(double(person.y)));
        person.y = 0;
    }
    if (person.y + person.height >= kOutputHeight) {
        person.height = kOutputHeight - 1 - person.y;
    }
    return person;
}

int32_t rect_overlap_area(const Rect_t &a, const Rect_t &b) {
    if (a.x > b.x + b.width || a.y > b.y + b.height || b.x > a.x + a.width || b.y > a.y + a.height) {
        return 0;
    }
    const double w =
        std::min(double(a.x + a.width), double(b.x + b.width)) - std::max(double(a.x), double(b.x));
    const double h =
        std::min(double(a.y + a.height), double(b.y + b.height)) - std::max(double(a.y), double(b.y));
    return low32(static_cast<int64_t>(static_cast<int32_t>(w)) * static_cast<int32_t>(h));
}

int32_t rect_union_area(const Rect_t &a, const Rect_t &b) {
    return low32(int64_t(rect_area(a)) + rect_area(b) - rect_overlap_area(a, b));
}

float rect_iou(const Rect_t &a, const Rect_t &b) {
    const int32_t unionArea = rect_union_area(a, b);
    // Two empty rectangles have no union; the integer division would stop
    // the process, and "no overlap" is the only sensible answer.
    if (unionArea == 0) {
        return 0.0f;
    }
    return static_cast<float>(rect_overlap_area(a, b) / unionArea);
}

Rect_t rect_bounding_union(const Rect_t &a, const Rect_t &b) {
    if (is_empty(a) && is_empty(b)) {
        return Rect_t{0, 0, 0, 0};
    }
    if (is_empty(a)) {
        return b;
    }
    if (is_empty(b)) {
        return a;
    }
    Rect_t r;
    r.x = std::min(a.x, b.x);
    r.y = std::min(a.y, b.y);
    r.width = std::max(a.x + a.width, b.x + b.width) - r.x;
    r.height = std::max(a.y + a.height, b.y + b.height) - r.y;
    return r;
}

Rect_t rect_merge(const Rect_t &a, const Rect_t &b) {
    if (is_all_zero(a)) {
        return b;
    }
    if (is_all_zero(b)) {
        return a;
    }
    // The mixture of minima and maxima is how the merge has always worked.
    return Rect_t{std::min(a.x, b.x), std::max(a.y, b.y), std::min(a.width, b.width),
                  std::max(a.height, b.height)};
}

void rect_merge_list(const Rect_t (&list)[kRectListLength], Rect_t &acc) {
    Rect_t current{0, 0, 0, 0};
    for (const Rect_t &record : list) {
        if (record.y != 0 && record.height != 0) {
            current = record;
        }
        acc = rect_merge(current, acc);
    }
}
