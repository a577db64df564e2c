/*
 * Video files through FFmpeg's own libraries: the codec decodes on its own
 * threads, and each picture is scaled straight to NV12 of the port's size in
 * YUV, without a full-size RGB picture on the way, in the video range (16 to
 * 235) that the earlier way through an RGB picture gave: the grey levels stay
 * within a level or so of it. Frames that do not decode are skipped and
 * counted; a picture that changes size halfway is scaled from its new size.
 *
 * Thread-bound: the producer thread of the pipeline (or one tool thread)
 * owns a decoder.
 */
#ifndef FACEDET_HOST_VIDEO_DECODER_H
#define FACEDET_HOST_VIDEO_DECODER_H

#include <cstdint>
#include <memory>
#include <string>

namespace host {

class VideoDecoder {
  public:
    // Null with *error (one line, without the path) when FFmpeg cannot open
    // the file or it has no video it can decode.
    static std::unique_ptr<VideoDecoder> open(const std::string &path, std::string *error);
    ~VideoDecoder();
    VideoDecoder(const VideoDecoder &) = delete;
    VideoDecoder &operator=(const VideoDecoder &) = delete;

    // Frames per second of the video stream (30 when it says nothing usable).
    double fps() const { return fps_; }
    // Frames the container announces; -1 when it does not say.
    long frames() const { return frames_; }
    // Frames that could not be decoded so far.
    long failed() const { return failed_; }

    // Decodes the next picture; false at the end of the video.
    bool next();
    // The current picture as NV12 of width x height (even sizes).
    void scale_to_nv12(int width, int height, uint8_t *dst);
    // Back to the first picture; false when the file cannot seek.
    bool rewind();

  private:
    struct Av;
    explicit VideoDecoder(std::unique_ptr<Av> av);
    bool receive();

    std::unique_ptr<Av> av_;
    double fps_ = 30.0;
    long frames_ = -1;
    long failed_ = 0;
    bool draining_ = false;
};

}  // namespace host

#endif
