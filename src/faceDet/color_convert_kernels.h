// What the per-instruction-set files of the colour conversion share.
#ifndef FACEDET_COLOR_CONVERT_KERNELS_H
#define FACEDET_COLOR_CONVERT_KERNELS_H

#include <cstdint>

// Converts pixels [x0, x1) of one luma row with its chroma row (both
// addressed from the start of the row). The vector versions finish the
// columns their width does not cover with it.
void nv12_row_reference(const uint8_t *yRow, const uint8_t *uvRow, uint8_t *bgrRow, int x0, int x1);

// True when width and height are acceptable (see Nv12ToBgrFn).
inline bool nv12_geometry_ok(int width, int height) {
    return width > 0 && width % 8 == 0 && height > 0;
}

int nv12_to_bgr_sse2(const uint8_t *nv12, uint8_t *bgr, int width, int height);
int nv12_to_bgr_avx2(const uint8_t *nv12, uint8_t *bgr, int width, int height);
int nv12_to_bgr_neon(const uint8_t *nv12, uint8_t *bgr, int width, int height);

#endif
