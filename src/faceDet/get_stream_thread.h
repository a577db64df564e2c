/*
 * The frame thread: waits for each small NV12 frame of the analysis port,
 * copies it out of the media buffer and gives the buffer back at once, so a
 * slow analysis never starves the media pipeline.
 */
#ifndef FACEDET_GET_STREAM_THREAD_H
#define FACEDET_GET_STREAM_THREAD_H

#include <cstdint>
#include <vector>

#include "faceDet/frame_geometry.h"
#include "mi_common.h"

// Where the frame counter wraps to, staying above the warm-up.
constexpr int kFrameCounterLimit = 10000000;
constexpr int kFrameCounterRestart = 10;

// Time stamps of the current frame's stages, microseconds of MI_SYS_GetCurPts.
// Frame thread only.
extern MI_U64 time_00, time_get_frame, time_autogamma, time_invoke, time_strategies, time_11;
extern MI_U64 time_PTZ, lastTime, newTime, Present_Time;

// Framing sent when auto framing is switched off: the full 1920x1080 view.
extern int32_t output_ture[4];

// Luma histogram of the current frame: entry y counts the pixels of luma y.
extern float g_v_hist[256];

// Working tables of the automatic gamma, 256 zeros each at start.
extern std::vector<int32_t> appliedOffsets;
extern std::vector<int32_t> newOffsets;

// The frame counter after one more frame: counts up, wraps to 10 past ten million.
int next_frame_number(int frameNumber);

void *Get_stream_thread(void *arg);

#endif
