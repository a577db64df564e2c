/*
 * Video files as a frame source through FFmpeg's libraries (video_decoder.h):
 * decoded on the codec's threads and scaled to the port's NV12 in YUV.
 */
#include "frame_source.h"
#include "video_decoder.h"

namespace host {
namespace {

class FfmpegSource final : public FrameSource {
  public:
    explicit FfmpegSource(std::unique_ptr<VideoDecoder> decoder) : decoder_(std::move(decoder)) {}

    double fps() const override { return decoder_->fps(); }
    bool next(int, int) override { return decoder_->next(); }
    void render(int width, int height, uint8_t *dst) override { decoder_->scale_to_nv12(width, height, dst); }
    bool rewind() override { return decoder_->rewind(); }
    long failed_frames() const override { return decoder_->failed(); }

  private:
    std::unique_ptr<VideoDecoder> decoder_;
};

}  // namespace

std::unique_ptr<FrameSource> open_ffmpeg_source(const std::string &path, std::string *error) {
    std::unique_ptr<VideoDecoder> decoder = VideoDecoder::open(path, error);
    if (!decoder) {
        return nullptr;
    }
    return std::make_unique<FfmpegSource>(std::move(decoder));
}

}  // namespace host
