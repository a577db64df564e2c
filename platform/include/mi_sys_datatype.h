/* Records of the MI system module: channel ports, pixel formats and frame buffers. */
#ifndef FACEDET_MI_SYS_DATATYPE_H
#define FACEDET_MI_SYS_DATATYPE_H

#include "mi_common.h"

#define MI_SYS_ERR(errid) MI_DEF_ERR(E_MI_MODULE_ID_SYS, MI_ERR_LEVEL_ERROR, errid)

typedef enum {
    E_MI_SYS_PIXEL_FRAME_YUV422_YUYV = 0,
    E_MI_SYS_PIXEL_FRAME_ARGB8888 = 1,
    E_MI_SYS_PIXEL_FRAME_ABGR8888 = 2,
    E_MI_SYS_PIXEL_FRAME_BGRA8888 = 3,
    E_MI_SYS_PIXEL_FRAME_RGB565 = 4,
    E_MI_SYS_PIXEL_FRAME_ARGB1555 = 5,
    E_MI_SYS_PIXEL_FRAME_ARGB4444 = 6,
    E_MI_SYS_PIXEL_FRAME_I2 = 7,
    E_MI_SYS_PIXEL_FRAME_I4 = 8,
    E_MI_SYS_PIXEL_FRAME_I8 = 9,
    E_MI_SYS_PIXEL_FRAME_YUV_SEMIPLANAR_422 = 10,
    E_MI_SYS_PIXEL_FRAME_YUV_SEMIPLANAR_420 = 11, /* NV12 */
    E_MI_SYS_PIXEL_FRAME_FORMAT_MAX = 12
} MI_SYS_PixelFormat_e;

typedef enum {
    E_MI_SYS_BIND_TYPE_FRAME_BASE = 1,
    E_MI_SYS_BIND_TYPE_SW_LOW_LATENCY = 2,
    E_MI_SYS_BIND_TYPE_REALTIME = 4
} MI_SYS_BindType_e;

typedef enum { E_MI_SYS_COMPRESS_MODE_NONE = 0 } MI_SYS_CompressMode_e;

typedef enum { E_MI_SYS_BUFDATA_RAW = 0, E_MI_SYS_BUFDATA_FRAME = 1 } MI_SYS_BufDataType_e;

/* The channel-port record: which output of which unit. */
typedef struct MI_SYS_ChnPort_s {
    MI_ModuleId_e eModId;
    MI_U32 u32DevId;
    MI_U32 u32ChnId;
    MI_U32 u32PortId;
} MI_SYS_ChnPort_t;

/* One picture in a frame buffer; plane 0 is luma, plane 1 interleaved chroma for NV12. */
typedef struct MI_SYS_FrameData_s {
    MI_SYS_PixelFormat_e ePixelFormat;
    MI_SYS_CompressMode_e eCompressMode;
    MI_U16 u16Width;
    MI_U16 u16Height;
    void *pVirAddr[3];
    MI_PHY phyAddr[3];
    MI_U32 u32Stride[3];
    MI_U32 u32BufSize;
} MI_SYS_FrameData_t;

/* The frame buffer description handed out with each frame. */
typedef struct MI_SYS_BufInfo_s {
    MI_U64 u64Pts;
    MI_SYS_BufDataType_e eBufType;
    MI_BOOL bEndOfStream;
    union {
        MI_SYS_FrameData_t stFrameData;
        MI_U8 au8Reserved[112];
    };
} MI_SYS_BufInfo_t;

typedef MI_S32 MI_SYS_BUF_HANDLE;

typedef struct MI_SYS_Version_s {
    MI_U8 u8Version[128];
} MI_SYS_Version_t;

#endif
