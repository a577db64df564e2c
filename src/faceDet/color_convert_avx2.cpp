// The colour conversion with AVX2, chosen at run time on CPUs that have it
// (this file alone is compiled with -mavx2): 32 pixels of two rows per step.
//
// Each 128-bit lane converts 16 pixels into 48 bytes. Instead of gathering
// the output bytes from three planes with nine shuffles, every plane is
// shuffled once so that pixel k of plane c sits at byte (3k + c) mod 16: for
// 16 pixels these positions are a permutation, and each 16-byte piece of the
// output then takes, at byte p, the plane that the position p belongs to, a
// fixed choice made with masks. The Y bytes are shuffled before the
// arithmetic and the chroma terms are shuffled once for both rows.
#include <immintrin.h>

#include "faceDet/color_convert.h"
#include "faceDet/color_convert_kernels.h"

namespace {

struct ShuffleTables {
    alignas(32) uint8_t luma[3][32];    // plane c: byte (3k + c) % 16 <- pixel k
    alignas(32) uint8_t chroma[3][32];  // the same places <- the term of pixel k's chroma pair
    alignas(32) uint8_t plane[3][32];   // 0xFF where (p % 3) == c
};

// The chroma term bytes as packed in chroma_terms(): first and second terms
// share a register (pairs 0..7 of the first, then of the second), the third
// has its own (pairs 0..7).
constexpr ShuffleTables make_tables() {
    ShuffleTables t{};
    for (int lane = 0; lane < 2; ++lane) {
        for (int k = 0; k < 16; ++k) {
            for (int c = 0; c < 3; ++c) {
                const int pos = lane * 16 + (3 * k + c) % 16;
                t.luma[c][pos] = static_cast<uint8_t>(k);
                t.chroma[c][pos] = static_cast<uint8_t>((c == 1 ? 8 : 0) + k / 2);
            }
        }
        for (int p = 0; p < 16; ++p) {
            for (int c = 0; c < 3; ++c) {
                t.plane[c][lane * 16 + p] = p % 3 == c ? 0xFF : 0x00;
            }
        }
    }
    return t;
}

constexpr ShuffleTables kTables = make_tables();

inline __m256i load_table(const uint8_t *row) {
    return _mm256_load_si256(reinterpret_cast<const __m256i *>(row));
}

// The three terms for 32 pixels, already placed where convert32 needs them.
struct ChromaTerms {
    __m256i first, second, third;
};

inline ChromaTerms chroma_terms(const uint8_t *uv) {
    const __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(uv));
    const __m256i k128 = _mm256_set1_epi16(128);
    const __m256i a = _mm256_sub_epi16(_mm256_and_si256(c, _mm256_set1_epi16(0x00FF)), k128);
    const __m256i b = _mm256_sub_epi16(_mm256_srli_epi16(c, 8), k128);
    // mullo keeps the low 16 bits of each product: the wrap of the lanes.
    const __m256i first = _mm256_srai_epi16(_mm256_mullo_epi16(b, _mm256_set1_epi16(455)), 8);
    const __m256i second = _mm256_srai_epi16(_mm256_add_epi16(_mm256_mullo_epi16(b, _mm256_set1_epi16(88)),
                                                              _mm256_mullo_epi16(a, _mm256_set1_epi16(184))),
                                             8);
    const __m256i third = _mm256_srai_epi16(_mm256_mullo_epi16(a, _mm256_set1_epi16(360)), 8);
    // All terms are -128..127 after the shift, so the saturating packs are exact.
    const __m256i firstSecond = _mm256_packs_epi16(first, second);
    const __m256i thirdTwice = _mm256_packs_epi16(third, third);
    return {_mm256_shuffle_epi8(firstSecond, load_table(kTables.chroma[0])),
            _mm256_shuffle_epi8(firstSecond, load_table(kTables.chroma[1])),
            _mm256_shuffle_epi8(thirdTwice, load_table(kTables.chroma[2]))};
}

inline __m256i select3(__m256i p0, __m256i m0, __m256i p1, __m256i m1, __m256i p2, __m256i m2) {
    return _mm256_or_si256(_mm256_or_si256(_mm256_and_si256(p0, m0), _mm256_and_si256(p1, m1)),
                           _mm256_and_si256(p2, m2));
}

inline void convert32(const uint8_t *y, const ChromaTerms &t, uint8_t *out) {
    // With Y moved down by 128 into a signed byte, a saturating signed add is
    // exactly the clamp of Y + t to 0..255, moved down by 128.
    const __m256i bias = _mm256_set1_epi8(static_cast<char>(0x80));
    const __m256i ys = _mm256_xor_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(y)), bias);
    const __m256i p0 = _mm256_adds_epi8(_mm256_shuffle_epi8(ys, load_table(kTables.luma[0])), t.first);
    const __m256i p1 = _mm256_subs_epi8(_mm256_shuffle_epi8(ys, load_table(kTables.luma[1])), t.second);
    const __m256i p2 = _mm256_adds_epi8(_mm256_shuffle_epi8(ys, load_table(kTables.luma[2])), t.third);
    const __m256i m0 = load_table(kTables.plane[0]);
    const __m256i m1 = load_table(kTables.plane[1]);
    const __m256i m2 = load_table(kTables.plane[2]);
    // Output byte 16j + p of a lane belongs to plane (16j + p) % 3.
    const __m256i o0 = _mm256_xor_si256(select3(p0, m0, p1, m1, p2, m2), bias);
    const __m256i o1 = _mm256_xor_si256(select3(p0, m2, p1, m0, p2, m1), bias);
    const __m256i o2 = _mm256_xor_si256(select3(p0, m1, p1, m2, p2, m0), bias);
    // Lane 0 holds bytes 0..47 of the 96, lane 1 bytes 48..95; storing the
    // halves as they are measured faster than joining them across lanes.
    __m128i *dst = reinterpret_cast<__m128i *>(out);
    _mm_storeu_si128(dst, _mm256_castsi256_si128(o0));
    _mm_storeu_si128(dst + 1, _mm256_castsi256_si128(o1));
    _mm_storeu_si128(dst + 2, _mm256_castsi256_si128(o2));
    _mm_storeu_si128(dst + 3, _mm256_extracti128_si256(o0, 1));
    _mm_storeu_si128(dst + 4, _mm256_extracti128_si256(o1, 1));
    _mm_storeu_si128(dst + 5, _mm256_extracti128_si256(o2, 1));
}

// Two luma rows with their chroma row. A lone last row passes itself twice.
void convert_row_pair(const uint8_t *y0, const uint8_t *y1, const uint8_t *uv, uint8_t *out0, uint8_t *out1,
                      int width) {
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        const ChromaTerms t = chroma_terms(uv + x);
        convert32(y0 + x, t, out0 + 3 * x);
        convert32(y1 + x, t, out1 + 3 * x);
    }
    nv12_row_reference(y0, uv, out0, x, width);
    nv12_row_reference(y1, uv, out1, x, width);
}

}  // namespace

int nv12_to_bgr_avx2(const uint8_t *nv12, uint8_t *bgr, int width, int height) {
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
    _mm256_zeroupper();
    return 0;
}
