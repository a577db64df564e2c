// The pictures of a replay, drawn and encoded by OpenCV: the side-by-side
// video (one picture per delivered frame, frame_picture.h) and the timeline.
#ifndef FACEDET_REPLAY_RENDER_H
#define FACEDET_REPLAY_RENDER_H

#include <cstdint>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "framing_score.h"
#include "replay_logs.h"

namespace replay {

struct VideoResult {
    bool ok = false;
    int frames = 0;
    std::string error;
    cv::Mat still;  // the picture two thirds into the video, for the poster
};

// One video frame per delivered frame of the frame log, at `fps`. The
// pictures come from `delivered` (the platform's NV12 copy of each delivered
// frame, at the frame's source index) when it holds them all, else from the
// source, decoded again.
VideoResult render_video(const std::string &source, const std::string &delivered,
                         const std::vector<FrameLogEntry> &frameLog, const DaemonLog &daemon,
                         const SimLog &sim, double fps, const std::string &outPath);

// One picture of the run: the video's still above the timeline (read from
// `timelinePath`), at the video's width.
bool render_poster(const cv::Mat &still, const std::string &timelinePath, const std::string &outPath);

// A replayed recording on the timeline: when the camera's daemon sent moves,
// and the first frame where the PC's differ, on the frame log's clock.
struct RecordedMoves {
    std::vector<int64_t> timesUs;
    int64_t firstDifferenceUs = -1;  // -1: identical
};

// `truth` (may be null): the followed true face is drawn beside the camera's
// view; `recorded` (may be null): the camera's moves beside the PC's.
bool render_timeline(const std::vector<FrameLogEntry> &frameLog, const DaemonLog &daemon, const SimLog &sim,
                     const FramingScore *truth, const std::string &outPath, std::string *error,
                     const RecordedMoves *recorded = nullptr);

}  // namespace replay

#endif
