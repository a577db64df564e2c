/* MI video encoder channels. */
#ifndef FACEDET_MI_VENC_H
#define FACEDET_MI_VENC_H

#include "mi_sys_datatype.h"

#define MI_VENC_ERR(errid) MI_DEF_ERR(E_MI_MODULE_ID_VENC, MI_ERR_LEVEL_ERROR, errid)

typedef MI_S32 MI_VENC_CHN;

typedef enum {
    E_MI_VENC_MODTYPE_H264E = 1,
    E_MI_VENC_MODTYPE_H265E = 2,
    E_MI_VENC_MODTYPE_JPEGE = 3
} MI_VENC_ModType_e;

typedef struct MI_VENC_ChnAttr_s {
    MI_VENC_ModType_e eType;
    MI_U32 u32PicWidth;
    MI_U32 u32PicHeight;
    MI_U32 u32FrameRate;
} MI_VENC_ChnAttr_t;

#ifdef __cplusplus
extern "C" {
#endif

MI_S32 MI_VENC_CreateChn(MI_VENC_CHN VeChn, MI_VENC_ChnAttr_t *pstAttr);
MI_S32 MI_VENC_DestroyChn(MI_VENC_CHN VeChn);
MI_S32 MI_VENC_StartRecvPic(MI_VENC_CHN VeChn);
MI_S32 MI_VENC_StopRecvPic(MI_VENC_CHN VeChn);

#ifdef __cplusplus
}
#endif

#endif
