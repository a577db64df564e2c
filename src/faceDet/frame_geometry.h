/*
 * The analysis picture and its stream: the port is configured so that width, height and
 * stride are fixed, which is why the frame loop copies constant sizes and the
 * logic that works on the picture sizes its tables by these.
 */
#ifndef FACEDET_FRAME_GEOMETRY_H
#define FACEDET_FRAME_GEOMETRY_H

constexpr int kFrameWidth = 416;
constexpr int kFrameHeight = 234;
constexpr int kLumaBytes = kFrameWidth * kFrameHeight;        // 97344
constexpr int kChromaBytes = kFrameWidth * kFrameHeight / 2;  // 48672
constexpr int kNv12Bytes = kLumaBytes + kChromaBytes;         // 146016
constexpr int kBgrBytes = kFrameWidth * kFrameHeight * 3;     // 292032

// The first frames of the stream are only counted, while exposure and the
// pipeline settle; tools that read a run skip them as the frame loop does.
constexpr int kWarmUpFrames = 9;

#endif
