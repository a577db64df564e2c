/* MI video input: sensor interface devices and their capture ports. */
#ifndef FACEDET_MI_VIF_H
#define FACEDET_MI_VIF_H

#include "mi_sys_datatype.h"

#define MI_VIF_ERR(errid) MI_DEF_ERR(E_MI_MODULE_ID_VIF, MI_ERR_LEVEL_ERROR, errid)

typedef MI_S32 MI_VIF_DEV;
typedef MI_S32 MI_VIF_CHN;
typedef MI_S32 MI_VIF_PORT;

typedef enum {
    E_MI_VIF_MODE_BT656 = 0,
    E_MI_VIF_MODE_DIGITAL_CAMERA = 1,
    E_MI_VIF_MODE_BT1120_STANDARD = 2,
    E_MI_VIF_MODE_MIPI = 5
} MI_VIF_IntfMode_e;

typedef struct MI_VIF_DevAttr_s {
    MI_VIF_IntfMode_e eIntfMode;
    MI_U32 u32Reserved;
} MI_VIF_DevAttr_t;

typedef struct MI_VIF_Rect_s {
    MI_U32 u32X;
    MI_U32 u32Y;
    MI_U16 u16Width;
    MI_U16 u16Height;
} MI_VIF_Rect_t;

typedef struct MI_VIF_ChnPortAttr_s {
    MI_VIF_Rect_t stCapRect;
    MI_VIF_Rect_t stDestSize;
    MI_SYS_PixelFormat_e ePixFormat;
    MI_U32 u32FrameRate;
} MI_VIF_ChnPortAttr_t;

#ifdef __cplusplus
extern "C" {
#endif

MI_S32 MI_VIF_SetDevAttr(MI_VIF_DEV u32VifDev, MI_VIF_DevAttr_t *pstDevAttr);
MI_S32 MI_VIF_EnableDev(MI_VIF_DEV u32VifDev);
MI_S32 MI_VIF_DisableDev(MI_VIF_DEV u32VifDev);
MI_S32 MI_VIF_SetChnPortAttr(MI_VIF_CHN u32VifChn, MI_VIF_PORT u32ChnPort, MI_VIF_ChnPortAttr_t *pstAttr);
MI_S32 MI_VIF_EnableChnPort(MI_VIF_CHN u32VifChn, MI_VIF_PORT u32ChnPort);
MI_S32 MI_VIF_DisableChnPort(MI_VIF_CHN u32VifChn, MI_VIF_PORT u32ChnPort);

#ifdef __cplusplus
}
#endif

#endif
