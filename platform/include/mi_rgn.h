/* MI overlay regions: only the palette set-up is used by the daemon. */
#ifndef FACEDET_MI_RGN_H
#define FACEDET_MI_RGN_H

#include "mi_common.h"

#define MI_RGN_ERR(errid) MI_DEF_ERR(E_MI_MODULE_ID_RGN, MI_ERR_LEVEL_ERROR, errid)
#define MI_RGN_MAX_PALETTE_TABLE_NUM 256

typedef struct MI_RGN_PaletteElement_s {
    MI_U8 u8Alpha;
    MI_U8 u8Red;
    MI_U8 u8Green;
    MI_U8 u8Blue;
} MI_RGN_PaletteElement_t;

typedef struct MI_RGN_PaletteTable_s {
    MI_RGN_PaletteElement_t astElement[MI_RGN_MAX_PALETTE_TABLE_NUM];
} MI_RGN_PaletteTable_t;

#ifdef __cplusplus
extern "C" {
#endif

MI_S32 MI_RGN_Init(MI_RGN_PaletteTable_t *pstPaletteTable);
MI_S32 MI_RGN_DeInit(void);

#ifdef __cplusplus
}
#endif

#endif
