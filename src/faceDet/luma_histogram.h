// The 256-bin luma histogram of a frame, input of the automatic gamma.
#ifndef FACEDET_LUMA_HISTOGRAM_H
#define FACEDET_LUMA_HISTOGRAM_H

#include <cstdint>

// Clears hist and adds 1.0 to entry y for every luma byte y of the
// width x height plane, row by row.
void build_luma_histogram(const uint8_t *luma, int width, int height, float hist[256]);

#endif
