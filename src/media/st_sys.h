// Wrappers over the MI system module: set-up, exit and bindings.
#ifndef FACEDET_ST_SYS_H
#define FACEDET_ST_SYS_H

#include "mi_sys.h"

// One binding between two channel ports.
typedef struct {
    MI_SYS_ChnPort_t stSrcChnPort;
    MI_SYS_ChnPort_t stDstChnPort;
    MI_U32 u32SrcFrmrate;
    MI_U32 u32DstFrmrate;
    MI_SYS_BindType_e eBindType;
    MI_U32 u32BindParam;
} ST_Sys_BindInfo_T;

MI_S32 ST_Sys_Init(void);
MI_S32 ST_Sys_Exit(void);
MI_S32 ST_Sys_Bind(ST_Sys_BindInfo_T *pstBindInfo);
MI_S32 ST_Sys_UnBind(ST_Sys_BindInfo_T *pstBindInfo);

// Frame interval in milliseconds for a frame rate, -1 for a rate of 0.
MI_S32 ST_Sys_GetFrameIntervalMs(MI_U32 u32FrameRate);

#endif
