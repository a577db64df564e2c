// Wrappers over the MI video input module (not used by the daemon's own run).
#ifndef FACEDET_ST_VIF_H
#define FACEDET_ST_VIF_H

#include "mi_vif.h"

MI_S32 ST_Vif_EnableDev(MI_VIF_DEV VifDev, MI_VIF_DevAttr_t *pstDevAttr);
MI_S32 ST_Vif_DisableDev(MI_VIF_DEV VifDev);
MI_S32 ST_Vif_CreatePort(MI_VIF_CHN VifChn, MI_VIF_PORT VifPort, MI_VIF_ChnPortAttr_t *pstAttr);
MI_S32 ST_Vif_StartPort(MI_VIF_DEV VifDev, MI_VIF_CHN VifChn, MI_VIF_PORT VifPort);
MI_S32 ST_Vif_StopPort(MI_VIF_CHN VifChn, MI_VIF_PORT VifPort);

#endif
