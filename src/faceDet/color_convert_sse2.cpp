// The colour conversion with SSE2, which every x86-64 CPU has: 16 pixels of
// two rows per step, the chroma work shared by both rows.
#include <emmintrin.h>

#include "faceDet/color_convert.h"
#include "faceDet/color_convert_kernels.h"

namespace {

// Per-pixel signed offsets of the three output bytes for 16 pixels.
struct ChromaTerms {
    __m128i first, second, third;
};

// Eight 16-bit lanes holding -128..127 to sixteen bytes, each lane twice:
// one chroma pair serves two neighbouring pixels.
inline __m128i to_pixel_bytes(__m128i lanes) {
    const __m128i bytes = _mm_packs_epi16(lanes, lanes);
    return _mm_unpacklo_epi8(bytes, bytes);
}

inline ChromaTerms chroma_terms(const uint8_t *uv) {
    const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i *>(uv));
    const __m128i k128 = _mm_set1_epi16(128);
    const __m128i a = _mm_sub_epi16(_mm_and_si128(c, _mm_set1_epi16(0x00FF)), k128);
    const __m128i b = _mm_sub_epi16(_mm_srli_epi16(c, 8), k128);
    // mullo keeps the low 16 bits of each product: the wrap of the lanes.
    const __m128i first = _mm_srai_epi16(_mm_mullo_epi16(b, _mm_set1_epi16(455)), 8);
    const __m128i second = _mm_srai_epi16(
        _mm_add_epi16(_mm_mullo_epi16(b, _mm_set1_epi16(88)), _mm_mullo_epi16(a, _mm_set1_epi16(184))), 8);
    const __m128i third = _mm_srai_epi16(_mm_mullo_epi16(a, _mm_set1_epi16(360)), 8);
    return {to_pixel_bytes(first), to_pixel_bytes(second), to_pixel_bytes(third)};
}

// Four pixels held as 32-bit lanes (three bytes and a zero) to their twelve
// bytes at the start of the register; the rest of it is zero.
inline __m128i pack_four_pixels(__m128i px) {
    const __m128i low3 = _mm_set1_epi64x(0x0000000000FFFFFFLL);
    const __m128i next3 = _mm_set1_epi64x(0x0000FFFFFF000000LL);
    const __m128i q = _mm_or_si128(_mm_and_si128(px, low3), _mm_and_si128(_mm_srli_epi64(px, 8), next3));
    const __m128i high = _mm_srli_si128(_mm_and_si128(q, _mm_set_epi64x(-1, 0)), 2);
    return _mm_or_si128(_mm_move_epi64(q), high);
}

// Writes the three planes of 16 pixels interleaved: 48 bytes.
inline void store_interleaved(__m128i p0, __m128i p1, __m128i p2, uint8_t *out) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i lo01 = _mm_unpacklo_epi8(p0, p1);
    const __m128i hi01 = _mm_unpackhi_epi8(p0, p1);
    const __m128i lo2 = _mm_unpacklo_epi8(p2, zero);
    const __m128i hi2 = _mm_unpackhi_epi8(p2, zero);
    const __m128i c0 = pack_four_pixels(_mm_unpacklo_epi16(lo01, lo2));
    const __m128i c1 = pack_four_pixels(_mm_unpackhi_epi16(lo01, lo2));
    const __m128i c2 = pack_four_pixels(_mm_unpacklo_epi16(hi01, hi2));
    const __m128i c3 = pack_four_pixels(_mm_unpackhi_epi16(hi01, hi2));
    __m128i *dst = reinterpret_cast<__m128i *>(out);
    _mm_storeu_si128(dst, _mm_or_si128(c0, _mm_slli_si128(c1, 12)));
    _mm_storeu_si128(dst + 1, _mm_or_si128(_mm_srli_si128(c1, 4), _mm_slli_si128(c2, 8)));
    _mm_storeu_si128(dst + 2, _mm_or_si128(_mm_srli_si128(c2, 8), _mm_slli_si128(c3, 4)));
}

inline void convert16(const uint8_t *y, const ChromaTerms &t, uint8_t *out) {
    // With Y moved down by 128 into a signed byte, a saturating signed add is
    // exactly the clamp of Y + t to 0..255, moved down by 128.
    const __m128i bias = _mm_set1_epi8(static_cast<char>(0x80));
    const __m128i ys = _mm_xor_si128(_mm_loadu_si128(reinterpret_cast<const __m128i *>(y)), bias);
    store_interleaved(_mm_xor_si128(_mm_adds_epi8(ys, t.first), bias),
                      _mm_xor_si128(_mm_subs_epi8(ys, t.second), bias),
                      _mm_xor_si128(_mm_adds_epi8(ys, t.third), bias), out);
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

int nv12_to_bgr_sse2(const uint8_t *nv12, uint8_t *bgr, int width, int height) {
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
