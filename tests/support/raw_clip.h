// Synthetic raw NV12 clips for the host platform's file source.
#ifndef FACEDET_TEST_RAW_CLIP_H
#define FACEDET_TEST_RAW_CLIP_H

#include <cstdint>
#include <string>

// Writes `frames` NV12 frames of width x height; frame i has luma i % 256
// everywhere and chroma 128, so a frame tells its index by any luma byte.
void write_raw_clip(const std::string &path, int frames, int width = 416, int height = 234);

#endif
