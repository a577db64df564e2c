/*
 * Start and stop of the small analysis stream: one more output port on the
 * already running VPE channel 0, and the frame thread that reads it.
 */
#ifndef FACEDET_QMT_VIDEO_STREAM_H
#define FACEDET_QMT_VIDEO_STREAM_H

#include "mi_common.h"

// 0, the MI code of the first failing call, or -1 when the thread cannot start.
MI_S32 QMT_Video_Stream_Start(void);
// 0, -1 when the stream is not running, or the code of the port disable.
MI_S32 QMT_Video_Stream_Stop(void);

#endif
