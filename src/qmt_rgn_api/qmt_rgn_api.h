// Overlay regions: the palette that indexed overlay bitmaps draw with.
#ifndef FACEDET_QMT_RGN_API_H
#define FACEDET_QMT_RGN_API_H

#include "mi_rgn.h"

// Palette indices of the overlay colours; 0 stays transparent.
enum {
    QMT_RGN_COLOR_TRANSPARENT = 0,
    QMT_RGN_COLOR_RED = 1,
    QMT_RGN_COLOR_GREEN = 2,
    QMT_RGN_COLOR_BLUE = 3,
    QMT_RGN_COLOR_WHITE = 255,
};

// Fills the 256-entry palette: all zero but red, green, blue and white.
void qmt_rgn_fill_palette(MI_RGN_PaletteTable_t *palette);

// Initialises the region module with that palette; the platform's result code.
MI_S32 qmt_rgn_init(void);

#endif
