// The colour conversion with NEON for the camera's CPU: 16 pixels of two rows
// per step, the chroma work shared by both rows; the structure loads and
// stores do the (de)interleaving.
#include <arm_neon.h>

#include "faceDet/color_convert.h"
#include "faceDet/color_convert_kernels.h"

namespace {

struct ChromaTerms {
    int8x16_t first, second, third;
};

// Eight lanes holding -128..127 to sixteen bytes, each lane twice: one chroma
// pair serves two neighbouring pixels.
inline int8x16_t to_pixel_bytes(int16x8_t lanes) {
    const int8x8_t bytes = vmovn_s16(lanes);
    const int8x8x2_t twice = vzip_s8(bytes, bytes);
    return vcombine_s8(twice.val[0], twice.val[1]);
}

inline ChromaTerms chroma_terms(const uint8_t *uv) {
    const uint8x8x2_t c = vld2_u8(uv);
    const uint8x8_t k128 = vdup_n_u8(128);
    // The widening subtract wraps to 16 bits, which read as signed is c - 128.
    const int16x8_t a = vreinterpretq_s16_u16(vsubl_u8(c.val[0], k128));
    const int16x8_t b = vreinterpretq_s16_u16(vsubl_u8(c.val[1], k128));
    // vmul/vmla keep the low 16 bits of each product: the wrap of the lanes.
    const int16x8_t first = vshrq_n_s16(vmulq_n_s16(b, 455), 8);
    const int16x8_t second = vshrq_n_s16(vmlaq_n_s16(vmulq_n_s16(b, 88), a, 184), 8);
    const int16x8_t third = vshrq_n_s16(vmulq_n_s16(a, 360), 8);
    return {to_pixel_bytes(first), to_pixel_bytes(second), to_pixel_bytes(third)};
}

inline void convert16(const uint8_t *y, const ChromaTerms &t, uint8_t *out) {
    // With Y moved down by 128 into a signed byte, a saturating signed add is
    // exactly the clamp of Y + t to 0..255, moved down by 128.
    const uint8x16_t bias = vdupq_n_u8(0x80);
    const int8x16_t ys = vreinterpretq_s8_u8(veorq_u8(vld1q_u8(y), bias));
    uint8x16x3_t px;
    px.val[0] = veorq_u8(vreinterpretq_u8_s8(vqaddq_s8(ys, t.first)), bias);
    px.val[1] = veorq_u8(vreinterpretq_u8_s8(vqsubq_s8(ys, t.second)), bias);
    px.val[2] = veorq_u8(vreinterpretq_u8_s8(vqaddq_s8(ys, t.third)), bias);
    vst3q_u8(out, px);
}

// Two luma rows with their chroma row. A lone last row passes itself twice.
void convert_row_pair(const uint8_t *y0, const uint8_t *y1, const uint8_t *uv, uint8_t *out0, uint8_t *out1,
                      int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const ChromaTerms t = chroma_terms(uv + x);
        convert16(y0 + x, t, out0 + 3 * x);
        convert16(y1 + x, t, out1 + 3 * x);
    }
    nv12_row_reference(y0, uv, out0, x, width);
    nv12_row_reference(y1, uv, out1, x, width);
}

}  // namespace

int nv12_to_bgr_neon(const uint8_t *nv12, uint8_t *bgr, int width, int height) {
    if (!nv12_geometry_ok(width, height)) {
        return -1;
    }
    const size_t w = static_cast<size_t>(width);
    const uint8_t *chroma = nv12 + w * height;
    for (int r = 0; r < height; r += 2) {
        const int r1 = r + 1 < height ? r + 1 : r;
        convert_row_pair(nv12 + r * w, nv12 + r1 * w, chroma + (r / 2) * w, bgr + r * w * 3, bgr + r1 * w * 3,
                         width);
    }
    return 0;
}
