/*
 * The analysis stream's configuration and status record, which stream start
 * fills and the frame thread serves. Written by main's thread before the
 * frame thread is created and after it has been joined, so it needs no lock.
 */
#ifndef FACEDET_STREAM_RECORD_H
#define FACEDET_STREAM_RECORD_H

#include <pthread.h>

#include "mi_sys_datatype.h"

// Configuration and status of the analysis stream ("Stauts" is the name the
// rest of the camera software uses; it is kept everywhere it appears).
typedef struct {
    MI_U32 u32Enable;  // 1 while the capture stream runs
    MI_U32 u32InputChn;
    MI_U32 u32InputPort;
    MI_SYS_PixelFormat_e ePixelFormat;
    MI_SYS_BindType_e eBindType;
    MI_U32 u32Width;
    MI_U32 u32Height;
    MI_U32 u32FrameRate;
    pthread_t stream_thread_pid;
    MI_SYS_ChnPort_t dstChnPort;  // where frames are taken from
} QMT_Stream_Stauts_t;

// Only element 0 exists.
extern QMT_Stream_Stauts_t g_stream_stauts[1];

// Set once the frame thread exists; main's thread only.
extern MI_U8 g_ive_VB_Proc_flag;

#endif
