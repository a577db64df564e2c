/*
 * Process-wide state of the daemon: the exit request and the markers that
 * main, the signal handler and the frame thread share. The stream record
 * itself belongs to the stream (media/stream_record.h).
 */
#ifndef FACEDET_PROCESS_GLOBALS_H
#define FACEDET_PROCESS_GLOBALS_H

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "media/stream_record.h"
#include "mi_sys_datatype.h"

// The record the running frame thread serves, published by that thread.
extern std::atomic<QMT_Stream_Stauts_t *> QMT_Stream_Stauts;

// Exit request, set by the signal handler and polled by the frame loop.
extern std::atomic<int32_t> g_exit_all_flag;

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
