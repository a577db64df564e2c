/*
 * Process-wide state of the daemon: the stream record, the exit request and
 * the markers that main, the signal handler and the frame thread share.
 */
#ifndef FACEDET_PROCESS_GLOBALS_H
#define FACEDET_PROCESS_GLOBALS_H

#include <pthread.h>

#include <atomic>
#include <cstdint>

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

// Only element 0 exists. Written by main's thread before the frame thread is
// created and after it has been joined, so it needs no lock.
extern QMT_Stream_Stauts_t g_stream_stauts[1];

// The record the running frame thread serves, published by that thread.
extern std::atomic<QMT_Stream_Stauts_t *> QMT_Stream_Stauts;

// Exit request, set by the signal handler and polled by the frame loop.
extern std::atomic<int32_t> g_exit_all_flag;

// Set once the frame thread exists; main's thread only.
extern MI_U8 g_ive_VB_Proc_flag;

// Full sensor width; no live code reads it.
extern int32_t WIDTH;

void HandleExitSig(int sig);

extern "C" {
// Resolved by the platform's image-signal-processing library against the
// program; the daemon runs no user-space 3A of its own.
MI_S32 MI_ISP_EnableUserspace3A(void);
MI_S32 MI_ISP_DisableUserspace3A(void);
}

#endif
