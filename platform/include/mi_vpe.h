/* MI video processing engine: channels and their scaled output ports. */
#ifndef FACEDET_MI_VPE_H
#define FACEDET_MI_VPE_H

#include "mi_sys_datatype.h"

#define MI_VPE_ERR(errid) MI_DEF_ERR(E_MI_MODULE_ID_VPE, MI_ERR_LEVEL_ERROR, errid)

typedef MI_S32 MI_VPE_CHANNEL;
typedef MI_S32 MI_VPE_PORT;

typedef enum {
    E_MI_VPE_RUN_INVALID = 0,
    E_MI_VPE_RUN_DVR_MODE = 0x01,
    E_MI_VPE_RUN_CAM_TOP_MODE = 0x02,
    E_MI_VPE_RUN_CAM_BOTTOM_MODE = 0x04,
    E_MI_VPE_RUN_CAM_MODE = 0x06,
    E_MI_VPE_RUN_REALTIME_TOP_MODE = 0x08,
    E_MI_VPE_RUN_REALTIME_BOTTOM_MODE = 0x10,
    E_MI_VPE_RUN_REALTIME_MODE = 0x18
} MI_VPE_RunningMode_e;

/* The port mode record: output size, pixel format and compression. */
typedef struct MI_VPE_PortMode_s {
    MI_U16 u16Width;
    MI_U16 u16Height;
    MI_SYS_PixelFormat_e ePixelFormat;
    MI_SYS_CompressMode_e eCompressMode;
} MI_VPE_PortMode_t;

typedef struct MI_VPE_ChannelAttr_s {
    MI_U16 u16MaxW;
    MI_U16 u16MaxH;
    MI_SYS_PixelFormat_e ePixFmt;
    MI_VPE_RunningMode_e eRunningMode;
} MI_VPE_ChannelAttr_t;

typedef struct MI_VPE_ChannelPara_s {
    MI_U32 u32Reserved;
} MI_VPE_ChannelPara_t;

#ifdef __cplusplus
extern "C" {
#endif

MI_S32 MI_VPE_CreateChannel(MI_VPE_CHANNEL VpeCh, MI_VPE_ChannelAttr_t *pstVpeChAttr);
MI_S32 MI_VPE_DestroyChannel(MI_VPE_CHANNEL VpeCh);
MI_S32 MI_VPE_SetChannelParam(MI_VPE_CHANNEL VpeCh, MI_VPE_ChannelPara_t *pstVpeParam);
MI_S32 MI_VPE_StartChannel(MI_VPE_CHANNEL VpeCh);
MI_S32 MI_VPE_StopChannel(MI_VPE_CHANNEL VpeCh);
MI_S32 MI_VPE_GetPortMode(MI_VPE_CHANNEL VpeCh, MI_VPE_PORT VpePort, MI_VPE_PortMode_t *pstVpeMode);
MI_S32 MI_VPE_SetPortMode(MI_VPE_CHANNEL VpeCh, MI_VPE_PORT VpePort, MI_VPE_PortMode_t *pstVpeMode);
MI_S32 MI_VPE_EnablePort(MI_VPE_CHANNEL VpeCh, MI_VPE_PORT VpePort);
MI_S32 MI_VPE_DisablePort(MI_VPE_CHANNEL VpeCh, MI_VPE_PORT VpePort);

#ifdef __cplusplus
}
#endif

#endif
