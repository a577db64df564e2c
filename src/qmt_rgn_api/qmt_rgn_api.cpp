#include "qmt_rgn_api/qmt_rgn_api.h"

#include <cstring>

#include "media/st_report.h"

void qmt_rgn_fill_palette(MI_RGN_PaletteTable_t *palette) {
    memset(palette, 0, sizeof *palette);
    palette->astElement[QMT_RGN_COLOR_RED] = {255, 255, 0, 0};
    palette->astElement[QMT_RGN_COLOR_GREEN] = {255, 0, 255, 0};
    palette->astElement[QMT_RGN_COLOR_BLUE] = {255, 0, 0, 255};
    palette->astElement[QMT_RGN_COLOR_WHITE] = {255, 255, 255, 255};
}

MI_S32 qmt_rgn_init(void) {
    MI_RGN_PaletteTable_t stPaletteTable;
    qmt_rgn_fill_palette(&stPaletteTable);
    return st_report("qmt_rgn_init", 569, MI_RGN_Init(&stPaletteTable));
}
