// The replay's video: one side-by-side picture (frame_picture.h) per delivered frame.
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include "frame_picture.h"
#include "replay_render.h"
#include "replay_source.h"

namespace replay {

VideoResult render_video(const std::string &source, const std::vector<FrameLogEntry> &frameLog,
                         const DaemonLog &daemon, const SimLog &sim, double fps, const std::string &outPath) {
    VideoResult result;
    if (frameLog.empty()) {
        result.error = "no frame was delivered";
        return result;
    }
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
    SourceReader reader(source);
    FrameCursor cursor;
    cv::Mat lastFrame(kFrameHeight, kFrameWidth, CV_8UC3, cv::Scalar(0, 0, 0));
    for (const FrameLogEntry &e : frameLog) {
        cv::Mat frame = reader.frame(e.sourceIndex);
        if (frame.empty()) {
            frame = lastFrame;
        }
        lastFrame = frame;
        const std::string fate = cursor.advance(e, daemon);
        const cv::Mat picture = draw_frame(frame, e, fate, cursor.overlay(),
                                           sim_state_at(sim.states, static_cast<int64_t>(e.ptsUs)));
        writer.write(picture);
        // By then the camera has usually found its framing.
        if (result.frames++ == static_cast<int>(frameLog.size() * 2 / 3)) {
            result.still = picture.clone();
        }
    }
    writer.release();
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
