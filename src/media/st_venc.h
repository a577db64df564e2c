// Wrappers over the MI video encoder (not used by the daemon's own run).
#ifndef FACEDET_ST_VENC_H
#define FACEDET_ST_VENC_H

#include "mi_venc.h"

MI_S32 ST_Venc_CreateChannel(MI_VENC_CHN VencChn, MI_VENC_ChnAttr_t *pstAttr);
MI_S32 ST_Venc_DestoryChannel(MI_VENC_CHN VencChn);
MI_S32 ST_Venc_StartChannel(MI_VENC_CHN VencChn);
MI_S32 ST_Venc_StopChannel(MI_VENC_CHN VencChn);

#endif
