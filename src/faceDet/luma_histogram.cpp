#include "faceDet/luma_histogram.h"

#include <cstring>

void build_luma_histogram(const uint8_t *luma, int width, int height, float hist[256]) {
    memset(hist, 0, 256 * sizeof(float));
    for (int row = 0; row < height; ++row) {
        const uint8_t *line = luma + static_cast<long>(row) * width;
        for (int col = 0; col < width; ++col) {
            hist[line[col]] += 1.0f;
        }
    }
}
