// The reference colour conversion and the choice of the version the frame loop runs.
#include "faceDet/color_convert.h"

#include "faceDet/color_convert_kernels.h"

namespace {

// The camera's lanes are signed 16 bits and wrap; in int arithmetic that is
// the value modulo 2^16 read back as signed. Products and sums may be wrapped
// once at the end, since wrapping commutes with + and *.
inline int wrap16(int v) {
    return static_cast<int16_t>(v);
}

// Arithmetic shift of a lane: rounds toward minus infinity (-455 >> 8 is -2).
inline int shift8(int lane) {
    return lane >> 8;
}

inline uint8_t clamp_byte(int v) {
    return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
}

}  // namespace

void nv12_row_reference(const uint8_t *yRow, const uint8_t *uvRow, uint8_t *bgrRow, int x0, int x1) {
    for (int x = x0; x < x1; ++x) {
        const int pair = x & ~1;  // two neighbouring pixels share one chroma pair
        const int a = uvRow[pair] - 128;
        const int b = uvRow[pair + 1] - 128;
        const int y = yRow[x];
        bgrRow[3 * x + 0] = clamp_byte(y + shift8(wrap16(455 * b)));
        bgrRow[3 * x + 1] = clamp_byte(y - shift8(wrap16(88 * b + 184 * a)));
        bgrRow[3 * x + 2] = clamp_byte(y + shift8(wrap16(360 * a)));
    }
}

int nv12_to_bgr_reference(const uint8_t *nv12, uint8_t *bgr, int width, int height) {
    if (!nv12_geometry_ok(width, height)) {
        return -1;
    }
    const uint8_t *chroma = nv12 + static_cast<size_t>(width) * height;
    for (int r = 0; r < height; ++r) {
        nv12_row_reference(nv12 + static_cast<size_t>(r) * width, chroma + static_cast<size_t>(r / 2) * width,
                           bgr + static_cast<size_t>(r) * width * 3, 0, width);
    }
    return 0;
}

namespace {

#ifdef FACEDET_COLOR_AVX2
// Asked once, when the table is built: the AVX2 version is only compiled in,
// the CPU decides whether it may run.
bool cpu_has_avx2() {
    return __builtin_cpu_supports("avx2");
}
#endif

struct VariantTable {
    Nv12ToBgrVariant entries[4];
    size_t count = 0;
};

VariantTable build_variants() {
    VariantTable t;
    t.entries[t.count++] = {"reference", nv12_to_bgr_reference, true};
#ifdef FACEDET_COLOR_SSE2
    t.entries[t.count++] = {"sse2", nv12_to_bgr_sse2, true};
#endif
#ifdef FACEDET_COLOR_AVX2
    t.entries[t.count++] = {"avx2", nv12_to_bgr_avx2, cpu_has_avx2()};
#endif
#ifdef FACEDET_COLOR_NEON
    t.entries[t.count++] = {"neon", nv12_to_bgr_neon, true};
#endif
    return t;
}

const VariantTable &variants() {
    static const VariantTable table = build_variants();
    return table;
}

const Nv12ToBgrVariant &active_variant() {
    static const Nv12ToBgrVariant *const chosen = [] {
        const VariantTable &t = variants();
        const Nv12ToBgrVariant *best = &t.entries[0];
        for (size_t i = 1; i < t.count; ++i) {
            if (t.entries[i].usable) {
                best = &t.entries[i];
            }
        }
        return best;
    }();
    return *chosen;
}

}  // namespace

const Nv12ToBgrVariant *nv12_to_bgr_variants(size_t *count) {
    *count = variants().count;
    return variants().entries;
}

const char *nv12_to_bgr_active_name() {
    return active_variant().name;
}

int nv12_to_bgr(const uint8_t *nv12, uint8_t *bgr, int width, int height) {
    return active_variant().convert(nv12, bgr, width, height);
}
