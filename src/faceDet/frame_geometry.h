/*
 * The analysis picture: the port is configured so that width, height and
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

#endif
