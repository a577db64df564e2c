/*
 * The rectangle of auto framing and its geometry, in pixels of the 1920x1080
 * output space. Most uses hold the top-left corner in x, y; the move decision
 * keeps framings in centre form (x, y the centre) and says so where it does.
 *
 * Only rect_area, rect_intersection_area and rect_expand_to_person are on the
 * frame path; the others complete the set and keep the integer behaviour the
 * rest of the camera software has always had (see each one).
 */
#ifndef FACEDET_RECT_H
#define FACEDET_RECT_H

#include <cstdint>

struct Rect_t {
    int32_t x;
    int32_t y;
    int32_t width;
    int32_t height;
};

inline bool operator==(const Rect_t &a, const Rect_t &b) {
    return a.x == b.x && a.y == b.y && a.width == b.width && a.height == b.height;
}
inline bool operator!=(const Rect_t &a, const Rect_t &b) {
    return !(a == b);
}

// Output space the framing works in.
constexpr int32_t kOutputWidth = 1920;
constexpr int32_t kOutputHeight = 1080;

// Records rect_merge_list walks.
constexpr int kRectListLength = 10;

// width * height.
int32_t rect_area(const Rect_t &r);

// Area of the overlap; 0 when either rectangle has a zero side or they are
// apart. Rectangles that only touch are not rejected early and come out 0.
int32_t rect_intersection_area(const Rect_t &a, const Rect_t &b);

// Grows a face box into the head-and-shoulders rectangle of its person: a
// face sizes to the left and to the right, b above and c below, clipped to
// the output space (right edge 1919, bottom 1079 at most).
Rect_t rect_expand_to_person(const Rect_t &face, float a, float b, float c);

// Overlap through double minimum and maximum; no zero-size test, so it can be
// negative for rectangles with negative sides.
int32_t rect_overlap_area(const Rect_t &a, const Rect_t &b);

// area(a) + area(b) - rect_overlap_area(a, b).
int32_t rect_union_area(const Rect_t &a, const Rect_t &b);

// Overlap over union as an integer quotient: 0 for any partial overlap, 1
// only for identical rectangles.
float rect_iou(const Rect_t &a, const Rect_t &b);

// Smallest rectangle holding both; an empty one (zero side) is ignored.
Rect_t rect_bounding_union(const Rect_t &a, const Rect_t &b);

// Field by field: min x, max y, min width, max height; an all-zero side
// yields the other one.
Rect_t rect_merge(const Rect_t &a, const Rect_t &b);

// Folds rect_merge over the list into acc, the current record being the last
// one seen with non-zero y and height.
void rect_merge_list(const Rect_t (&list)[kRectListLength], Rect_t &acc);

#endif
