// The source a replay plays, read as the host platform reads it: a raw NV12
// clip of 416x234 frames, a still image (a clip of one frame) or a video
// (through FFmpeg), each frame scaled to the analysis port's size.
#ifndef FACEDET_REPLAY_SOURCE_H
#define FACEDET_REPLAY_SOURCE_H

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>

#include <opencv2/core.hpp>
#include <opencv2/videoio.hpp>

#include "recording/reader.h"
#if FACEDET_HAS_FFMPEG
#include "video_decoder.h"
#endif

namespace replay {

struct SourceInfo {
    bool ok = false;
    std::string error;
    std::string kind;  // "raw", "image", "video", "recording"
    double fps = 30;
    long frames = -1;  // -1: unknown
};

// Opens the source as the host platform would and reports what it is. A
// recording is only recognised here: the replay reads it whole on its own.
SourceInfo probe_source(const std::string &path);

// Source frames by index (BGR, 416x234), read forward; a looping run's
// indices go past the end and wrap to the start. A video's frames are the
// port's own NV12 pictures (the platform's decoder and scaler), shown in BGR.
class SourceReader {
  public:
    explicit SourceReader(const std::string &path) : path_(path) {}

    // An empty picture when the source has no frame at all.
    cv::Mat frame(uint64_t index);

  private:
    void reopen();
    cv::Mat read_next();

    std::string path_;
    bool open_ = false;
    uint64_t position_ = 0;  // frames read since the last opening
    long length_ = -1;
    cv::Mat current_;
    cv::Mat still_;
    std::unique_ptr<std::ifstream> raw_;
    std::unique_ptr<recording::Reader> recording_;
    recording::Record record_;
#if FACEDET_HAS_FFMPEG
    std::unique_ptr<host::VideoDecoder> video_;
    cv::Mat nv12_;
#else
    cv::VideoCapture video_;
#endif
};

}  // namespace replay

#endif
