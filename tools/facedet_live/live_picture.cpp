#include "live_picture.h"

#include <vector>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

namespace live {
namespace {

// More than the camera's slowest analysis lags behind the newest frame.
constexpr size_t kRecentFrames = 45;

}  // namespace

bool LivePicture::newer_frame() {
    if (!reader_.read_newer(tapPath_, &frame_)) {
        return false;
    }
    // The oldest picture's memory is reused once a second's worth is kept.
    Recent r{frame_.sourceIndex, cv::Mat()};
    if (recent_.size() >= kRecentFrames) {
        r.bgr = std::move(recent_.front().bgr);
        recent_.pop_front();
    }
    const cv::Mat nv12(frame_.height * 3 / 2, frame_.width, CV_8UC1, frame_.nv12.data());
    if (frame_.width == kFrameWidth && frame_.height == kFrameHeight) {
        cv::cvtColor(nv12, r.bgr, cv::COLOR_YUV2BGR_NV12);
    } else {
        cv::Mat bgr;
        cv::cvtColor(nv12, bgr, cv::COLOR_YUV2BGR_NV12);
        cv::resize(bgr, r.bgr, cv::Size(kFrameWidth, kFrameHeight));
    }
    recent_.push_back(std::move(r));
    return true;
}

std::vector<unsigned char> LivePicture::render(const replay::Overlay &overlay, const logs::SimState &camera,
                                               const uint64_t *analysedSource) {
    cv::Mat picture;
    if (recent_.empty()) {
        picture = cv::Mat(replay::kPanelHeight, 2 * replay::kPanelWidth, CV_8UC3, cv::Scalar(40, 40, 40));
        replay::draw_text(picture, "waiting for the first frame of " + source_,
                          cv::Point(20, replay::kPanelHeight / 2), 0.7);
    } else {
        const Recent &newest = recent_.back();
        // The analysed frame, or the one read nearest before it when the tap
        // was rewritten before this loop came round.
        const Recent *analysed = nullptr;
        for (const Recent &r : recent_) {
            if (analysedSource != nullptr && r.sourceIndex <= *analysedSource &&
                *analysedSource - r.sourceIndex < 3) {
                analysed = &r;
            }
        }
        const Recent &left = analysed != nullptr ? *analysed : newest;
        logs::FrameLogEntry entry;
        entry.sourceIndex = left.sourceIndex;
        picture = replay::draw_frame(left.bgr, entry, analysed != nullptr ? "analysed" : "newest", overlay,
                                     camera, &newest.bgr);
    }
    std::vector<unsigned char> jpeg;
    cv::imencode(".jpg", picture, jpeg, {cv::IMWRITE_JPEG_QUALITY, 80});
    return jpeg;
}

}  // namespace live
