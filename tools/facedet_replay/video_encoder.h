// The replay's video written through FFmpeg's libraries: H.264 with a preset
// made for speed (what browsers play), MPEG-4 part 2 where no H.264 encoder
// is built in, in an MP4 file. Pictures go in as BGR.
#ifndef FACEDET_REPLAY_VIDEO_ENCODER_H
#define FACEDET_REPLAY_VIDEO_ENCODER_H

#include <memory>
#include <string>

#include <opencv2/core.hpp>

namespace replay {

class VideoEncoder {
  public:
    // Sets up the encoder and the file; error() says why when it could not.
    VideoEncoder(const std::string &path, cv::Size size, double fps);
    ~VideoEncoder();  // finishes the file when finish() was not called

    // Empty once open; else one line.
    const std::string &error() const { return error_; }
    // One picture of the size given.
    bool write(const cv::Mat &bgr);
    // Flushes the encoder and closes the file; false when the file is not whole.
    bool finish();

  private:
    struct Av;
    bool open(const std::string &path, cv::Size size, double fps);
    bool drain();

    std::unique_ptr<Av> av_;  // also makes the encoder move-only
    std::string error_;
};

}  // namespace replay

#endif
