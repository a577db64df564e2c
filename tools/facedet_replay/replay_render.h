// The pictures of a replay, drawn and encoded by OpenCV: the side-by-side
// video and the timeline.
#ifndef FACEDET_REPLAY_RENDER_H
#define FACEDET_REPLAY_RENDER_H

#include <string>
#include <vector>

#include "framing_score.h"
#include "replay_log.h"

namespace replay {

// The analysis port's picture size, and the size of each half of the video.
constexpr int kFrameWidth = 416;
constexpr int kFrameHeight = 234;
constexpr int kPanelWidth = 640;
constexpr int kPanelHeight = 360;

struct SourceInfo {
    bool ok = false;
    std::string error;
    std::string kind;  // "raw", "image", "video"
    double fps = 30;
    long frames = -1;  // -1: unknown
};

// Opens the source as the host platform would and reports what it is.
SourceInfo probe_source(const std::string &path);

struct VideoResult {
    bool ok = false;
    int frames = 0;
    std::string error;
};

// One video frame per delivered frame of the frame log, at `fps`.
VideoResult render_video(const std::string &source, const std::vector<FrameLogEntry> &frameLog,
                         const DaemonLog &daemon, const SimLog &sim, double fps, const std::string &outPath);

// `truth` (may be null): the followed true face is drawn beside the camera's view.
bool render_timeline(const std::vector<FrameLogEntry> &frameLog, const DaemonLog &daemon, const SimLog &sim,
                     const FramingScore *truth, const std::string &outPath, std::string *error);

}  // namespace replay

#endif
