/*
 * A flight recording as a frame source: the frames the camera's daemon took,
 * in order, each with the time the camera took it, and the control datagrams
 * that came between two frames, so that the platform can hand them to the
 * daemon before the same frame. A damaged recording plays up to its damage.
 */
#include <cstdio>
#include <cstring>

#include "frame_source.h"
#include "recording/reader.h"

namespace host {
namespace {

class RecordingSource final : public FrameSource {
  public:
    RecordingSource(std::string path, std::unique_ptr<recording::Reader> reader)
        : path_(std::move(path)), reader_(std::move(reader)) {
        const recording::FrameGeometry &g = reader_->header().frame;
        width_ = g.width;
        height_ = g.height;
        frame_.resize(static_cast<size_t>(g.lumaBytes) + g.chromaBytes);
    }

    // Only the clock between two takes uses it; the frames carry their own times.
    double fps() const override { return 30.0; }

    bool next(int width, int height) override {
        (void)width;
        (void)height;
        for (std::vector<uint8_t> &datagram : controls_) {
            spare_.push_back(std::move(datagram));
        }
        controls_.clear();
        while (reader_->next(&record_)) {
            if (record_.kind == recording::Kind::Control && record_.datagram.result > 0) {
                keep_control(record_.bytes);
            } else if (record_.kind == recording::Kind::Frame) {
                std::memcpy(frame_.data(), record_.bytes.data(), frame_.size());
                const uint64_t start = reader_->header().startMonotonicUs;
                timeUs_ = record_.timeUs > start ? record_.timeUs - start : 0;
                return true;
            }
        }
        if (reader_->damaged() && !damageSaid_) {
            damageSaid_ = true;
            std::fprintf(stderr, "host platform: FACEDET_SOURCE %s: %s\n", reader_->file().c_str(),
                         reader_->summary().c_str());
        }
        return false;
    }

    void render(int width, int height, uint8_t *dst) override {
        render_nv12(frame_.data(), width_, height_, dst, width, height);
    }

    bool rewind() override {
        std::string error;
        std::unique_ptr<recording::Reader> again =
            recording::Reader::open(path_, recording::kAnalysisFrame, &error);
        if (!again) {
            return false;
        }
        reader_ = std::move(again);
        return true;
    }

    bool recorded_time(uint64_t *us) const override {
        *us = timeUs_;
        return true;
    }

    const std::vector<std::vector<uint8_t>> &controls_before() const override { return controls_; }

  private:
    // Datagram buffers are reused, so a long recording allocates only at its start.
    void keep_control(const std::vector<uint8_t> &bytes) {
        if (spare_.empty()) {
            controls_.emplace_back();
        } else {
            controls_.push_back(std::move(spare_.back()));
            spare_.pop_back();
        }
        controls_.back().assign(bytes.begin(), bytes.end());
    }

    std::string path_;
    std::unique_ptr<recording::Reader> reader_;
    recording::Record record_;
    std::vector<uint8_t> frame_;
    int width_ = 0, height_ = 0;
    uint64_t timeUs_ = 0;
    std::vector<std::vector<uint8_t>> controls_, spare_;
    bool damageSaid_ = false;
};

}  // namespace

std::unique_ptr<FrameSource> open_recording_source(const std::string &path, std::string *error) {
    std::unique_ptr<recording::Reader> reader =
        recording::Reader::open(path, recording::kAnalysisFrame, error);
    if (!reader) {
        return nullptr;
    }
    return std::make_unique<RecordingSource>(path, std::move(reader));
}

}  // namespace host
