// The replay's video: one side-by-side picture (frame_picture.h) per delivered frame.
#include <condition_variable>
#include <deque>
#include <fstream>
#include <mutex>
#include <thread>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include "frame_picture.h"
#include "replay_render.h"
#include "replay_source.h"
#if FACEDET_HAS_FFMPEG
#include "video_encoder.h"
#endif

namespace replay {

namespace {

// Reads the delivered frames ahead on its own thread, so that decoding the
// source overlaps drawing and encoding. A few frames in flight: the memory
// stays flat whatever the clip's length.
class FramePrefetch {
  public:
    FramePrefetch(const std::string &source, const std::string &delivered,
                  const std::vector<FrameLogEntry> &frameLog)
        : thread_([this, source, delivered, &frameLog] {
              if (!run_delivered(delivered, frameLog)) {
                  run(source, frameLog);
              }
          }) {}
    ~FramePrefetch() {
        {
            std::lock_guard<std::mutex> lk(mu_);
            abandoned_ = true;
        }
        changed_.notify_all();
        thread_.join();
    }

    // The next delivered frame's picture (empty when it could not be read).
    cv::Mat next() {
        std::unique_lock<std::mutex> lk(mu_);
        changed_.wait(lk, [this] { return !ready_.empty(); });
        cv::Mat frame = std::move(ready_.front());
        ready_.pop_front();
        changed_.notify_all();
        return frame;
    }

  private:
    static constexpr size_t kAhead = 8;

    // False when the run went on without it: the writer stopped (a full
    // disk) or kept nothing.
    bool put(cv::Mat frame) {
        std::unique_lock<std::mutex> lk(mu_);
        changed_.wait(lk, [this] { return abandoned_ || ready_.size() < kAhead; });
        if (abandoned_) {
            return false;
        }
        ready_.push_back(std::move(frame));
        changed_.notify_all();
        return true;
    }

    void run(const std::string &source, const std::vector<FrameLogEntry> &frameLog) {
        SourceReader reader(source);
        for (const FrameLogEntry &e : frameLog) {
            if (!put(reader.frame(e.sourceIndex).clone())) {
                return;
            }
        }
    }

    // The platform's copy, when it holds every frame of the log; false
    // (nothing read) when it does not.
    bool run_delivered(const std::string &delivered, const std::vector<FrameLogEntry> &frameLog) {
        constexpr std::streamoff kBytes = kFrameWidth * kFrameHeight * 3 / 2;
        std::ifstream in(delivered, std::ios::binary | std::ios::ate);
        uint64_t last = 0;
        for (const FrameLogEntry &e : frameLog) {
            last = std::max(last, e.sourceIndex);
        }
        if (delivered.empty() || !in ||
            static_cast<std::streamoff>(in.tellg()) < (static_cast<std::streamoff>(last) + 1) * kBytes) {
            return false;
        }
        cv::Mat nv12(kFrameHeight * 3 / 2, kFrameWidth, CV_8UC1);
        for (const FrameLogEntry &e : frameLog) {
            in.seekg(static_cast<std::streamoff>(e.sourceIndex) * kBytes);
            cv::Mat bgr;
            if (in.read(reinterpret_cast<char *>(nv12.data), kBytes)) {
                cv::cvtColor(nv12, bgr, cv::COLOR_YUV2BGR_NV12);
            }
            if (!put(std::move(bgr))) {
                break;
            }
        }
        return true;
    }

    std::mutex mu_;
    std::condition_variable changed_;
    std::deque<cv::Mat> ready_;
    bool abandoned_ = false;
    std::thread thread_;  // last: started once the rest is ready
};

}  // namespace

VideoResult render_video(const std::string &source, const std::string &delivered,
                         const std::vector<FrameLogEntry> &frameLog, const DaemonLog &daemon,
                         const SimLog &sim, double fps, const std::string &outPath) {
    VideoResult result;
    if (frameLog.empty()) {
        result.error = "no frame was delivered";
        return result;
    }
#if FACEDET_HAS_FFMPEG
    const cv::Size size(2 * kPanelWidth, kPanelHeight);
    VideoEncoder writer(outPath, size, fps);
    if (!writer.error().empty()) {
        result.error = writer.error();
        return result;
    }
#else
    // H.264 is what browsers play; MPEG-4 part 2 only where no H.264 encoder is built in.
    const cv::Size size(2 * kPanelWidth, kPanelHeight);
    cv::VideoWriter writer(outPath, cv::VideoWriter::fourcc('a', 'v', 'c', '1'), fps, size);
    if (!writer.isOpened()) {
        writer.open(outPath, cv::VideoWriter::fourcc('m', 'p', '4', 'v'), fps, size);
    }
    if (!writer.isOpened()) {
        result.error = "OpenCV cannot write '" + outPath + "' (avc1 or mp4v)";
        return result;
    }
#endif
    FramePrefetch prefetch(source, delivered, frameLog);
    FrameCursor cursor;
    cv::Mat lastFrame(kFrameHeight, kFrameWidth, CV_8UC3, cv::Scalar(0, 0, 0));
    for (const FrameLogEntry &e : frameLog) {
        cv::Mat frame = prefetch.next();
        if (frame.empty()) {
            frame = lastFrame;
        }
        lastFrame = frame;
        const std::string fate = cursor.advance(e, daemon);
        const cv::Mat picture = draw_frame(frame, e, fate, cursor.overlay(),
                                           sim_state_at(sim.states, static_cast<int64_t>(e.ptsUs)));
#if FACEDET_HAS_FFMPEG
        if (!writer.write(picture)) {
            result.error = "FFmpeg failed to encode a picture of '" + outPath + "'";
            return result;
        }
#else
        writer.write(picture);
#endif
        // By then the camera has usually found its framing.
        if (result.frames++ == static_cast<int>(frameLog.size() * 2 / 3)) {
            result.still = picture.clone();
        }
    }
#if FACEDET_HAS_FFMPEG
    if (!writer.finish()) {
        result.error = "'" + outPath + "' could not be finished";
        return result;
    }
#else
    writer.release();
#endif
    result.ok = true;
    return result;
}

bool render_poster(const cv::Mat &still, const std::string &timelinePath, const std::string &outPath) {
    const cv::Mat timeline = cv::imread(timelinePath, cv::IMREAD_COLOR);
    if (still.empty() || timeline.empty()) {
        return false;
    }
    cv::Mat scaled, poster;
    cv::resize(timeline, scaled,
               cv::Size(still.cols, cvRound(static_cast<double>(timeline.rows) * still.cols / timeline.cols)),
               0, 0, cv::INTER_AREA);
    cv::vconcat(still, scaled, poster);
    return cv::imwrite(outPath, poster);
}

}  // namespace replay
