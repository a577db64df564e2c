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
    // Null with *error when no encoder or the file cannot be set up.
    static std::unique_ptr<VideoEncoder> open(const std::string &path, cv::Size size, double fps,
                                              std::string *error);
    ~VideoEncoder();
    VideoEncoder(const VideoEncoder &) = delete;
    VideoEncoder &operator=(const VideoEncoder &) = delete;

    // One picture of the size given at open.
    bool write(const cv::Mat &bgr);
    // Flushes the encoder and closes the file; false when the file is not whole.
    bool finish();

  private:
    struct Av;
    explicit VideoEncoder(std::unique_ptr<Av> av);
    bool drain();

    std::unique_ptr<Av> av_;
};

}  // namespace replay

#endif
