/* MI system module: process-wide set-up, time stamps, bindings and frame buffers. */
#ifndef FACEDET_MI_SYS_H
#define FACEDET_MI_SYS_H

#include "mi_sys_datatype.h"

#ifdef __cplusplus
extern "C" {
#endif

MI_S32 MI_SYS_Init(void);
MI_S32 MI_SYS_Exit(void);
MI_S32 MI_SYS_GetVersion(MI_SYS_Version_t *pstVersion);
/* Monotonic time stamp in microseconds. */
MI_S32 MI_SYS_GetCurPts(MI_U64 *pu64Pts);
MI_S32 MI_SYS_InitPtsBase(MI_U64 u64PtsBase);
MI_S32 MI_SYS_SyncPts(MI_U64 u64Pts);
MI_S32 MI_SYS_BindChnPort2(MI_SYS_ChnPort_t *pstSrcChnPort, MI_SYS_ChnPort_t *pstDstChnPort,
                           MI_U32 u32SrcFrmrate, MI_U32 u32DstFrmrate, MI_SYS_BindType_e eBindType,
                           MI_U32 u32BindParam);
MI_S32 MI_SYS_UnBindChnPort(MI_SYS_ChnPort_t *pstSrcChnPort, MI_SYS_ChnPort_t *pstDstChnPort);
/* How many frames the user may hold and how many wait in the port's queue. */
MI_S32 MI_SYS_SetChnOutputPortDepth(MI_SYS_ChnPort_t *pstChnPort, MI_U32 u32UserFrameDepth,
                                    MI_U32 u32BufQueueDepth);
/* A descriptor that polls readable while the port has a frame queued. */
MI_S32 MI_SYS_GetFd(MI_SYS_ChnPort_t *pstChnPort, MI_S32 *ps32Fd);
MI_S32 MI_SYS_CloseFd(MI_S32 s32ChnPortFd);
MI_S32 MI_SYS_ChnOutputPortGetBuf(MI_SYS_ChnPort_t *pstChnPort, MI_SYS_BufInfo_t *pstBufInfo,
                                  MI_SYS_BUF_HANDLE *phHandle);
MI_S32 MI_SYS_ChnOutputPortPutBuf(MI_SYS_BUF_HANDLE hHandle);

#ifdef __cplusplus
}
#endif

#endif
