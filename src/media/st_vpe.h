// Wrappers over the MI video processing engine: channels and output ports.
#ifndef FACEDET_ST_VPE_H
#define FACEDET_ST_VPE_H

#include "mi_vpe.h"

// What an output port is opened with.
typedef struct {
    MI_VPE_CHANNEL u32ChnId;
    MI_U16 u16OutputWidth;
    MI_U16 u16OutputHeight;
    MI_SYS_PixelFormat_e ePixelFormat;
    MI_U32 u32Reserved;  // carried along, never read
} ST_VPE_PortInfo_T;

MI_S32 ST_Vpe_CreateChannel(MI_VPE_CHANNEL VpeChannel, MI_VPE_ChannelAttr_t *pstChannelAttr);
MI_S32 ST_Vpe_StartChannel(MI_VPE_CHANNEL VpeChannel);
MI_S32 ST_Vpe_StopChannel(MI_VPE_CHANNEL VpeChannel);
MI_S32 ST_Vpe_DestroyChannel(MI_VPE_CHANNEL VpeChannel);
MI_S32 ST_Vpe_StartPort(MI_VPE_PORT VpePort, ST_VPE_PortInfo_T *pstPortInfo);
MI_S32 ST_Vpe_StopPort(MI_VPE_CHANNEL VpeChannel, MI_VPE_PORT VpePort);

// The fixed value printed beside the run mode when a channel is created.
MI_S32 ST_Vpe_GetDefaultMode(void);

#endif
