/*
 * NV12 to packed three-byte pixels for the analysis frame (416x234) and the
 * detector after it.
 *
 * The arithmetic is the camera's own fixed-point formula, fixed here to the
 * bit: a = c0 - 128, b = c1 - 128 (c0 the chroma byte at the even address),
 * every step in signed 16-bit lanes that wrap on overflow, >> an arithmetic
 * shift of the lane:
 *     first  = Y + ((455 * b) >> 8)
 *     second = Y - ((88 * b + 184 * a) >> 8)
 *     third  = Y + ((360 * a) >> 8)
 * each clamped to 0..255. The wrap of the large products is deliberate: the
 * detector was tuned on pictures made this way, so every version below must
 * give exactly these bytes, wrap included.
 */
#ifndef FACEDET_COLOR_CONVERT_H
#define FACEDET_COLOR_CONVERT_H

#include <cstddef>
#include <cstdint>

// Signature shared by every version. nv12 holds width x height luma bytes
// followed by the interleaved chroma rows, one per two luma rows ((height + 1)
// / 2 of them), each width bytes; bgr receives width x height x 3 bytes.
// Returns 0, or -1 (nothing written) unless width is a positive multiple of 8
// and height positive.
typedef int (*Nv12ToBgrFn)(const uint8_t *nv12, uint8_t *bgr, int width, int height);

// The entry the frame loop uses: the fastest version this CPU runs, chosen on
// the first call and kept.
int nv12_to_bgr(const uint8_t *nv12, uint8_t *bgr, int width, int height);

// The plain per-pixel version every other one is checked against.
int nv12_to_bgr_reference(const uint8_t *nv12, uint8_t *bgr, int width, int height);

// A version compiled into this build. usable is false when the CPU lacks the
// instructions (AVX2 on an older x86-64).
struct Nv12ToBgrVariant {
    const char *name;
    Nv12ToBgrFn convert;
    bool usable;
};

// Every compiled-in version, the reference first, the others in order of
// preference (the last usable one is what nv12_to_bgr picks).
const Nv12ToBgrVariant *nv12_to_bgr_variants(size_t *count);

// Name of the version nv12_to_bgr uses.
const char *nv12_to_bgr_active_name();

#endif
