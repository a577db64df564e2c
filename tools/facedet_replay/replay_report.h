// The figures of a replay, from the parsed logs, and the two text outputs
// (summary.json and report.html). No drawing here: see replay_render.h.
#ifndef FACEDET_REPLAY_REPORT_H
#define FACEDET_REPLAY_REPORT_H

#include <string>
#include <vector>

#include "framing_score.h"
#include "prediction.h"
#include "replay_logs.h"

namespace replay {

// A run as the tool drove it; filled in by main.
struct RunInfo {
    std::string source;
    std::string pace = "camera";  // camera, lockstep, realtime or recorded
    double seconds = 0;           // 0: the clip once
    bool gammaAsked = false;
    std::string gammaStatus;  // "ran", "gamma_peer not built", ...
    bool complete = false;
    std::string reason;   // why not complete, or "clip played to the end" etc.
    int daemonExit = -1;  // exit status, 128+signal, -1 unknown
    double wallSeconds = 0;
    long sourceFramesFailed = 0;  // frames of a video that did not decode and were skipped
    std::vector<std::string> notes;
};

struct Summary {
    RunInfo run;
    std::string engine, model;  // the detector's, as the daemon printed them
    int delivered = 0, taken = 0, dropped = 0;
    int takenInDaemonLog = 0, analysed = 0, framingFrames = 0;
    double facesMean = 0;
    int facesMax = 0;
    std::vector<int> faceHistogram;  // [n] frames with n faces (last bucket: n or more)
    int framesWithFaces = 0;
    int moves = 0, resets = 0, stopFullViews = 0;
    // Auto framing as the frame loop saw it: frames taken running and
    // stopped, passes while off, and the switches between them.
    int runFrames = 0, stopFrames = 0, offPasses = 0, modeSwitches = 0;
    double durationSeconds = 0;  // first to last delivered frame
    double frameCostMs = -1;     // the camera's time per analysed frame; -1: none applied
    double analysedFps = -1;     // frames the detector ran on per second of the daemon's clock; -1: none
    double movesPerMinute = 0;
    double firstMoveSeconds = -1;  // from the first delivered frame; -1: none
    Spread getFrame, autogamma, invoke, strategies, all;
    int simPackets = 0, simBadPackets = 0, simStates = 0;
    std::vector<GammaAnswer> gamma;
    bool daemonLogCut = false;
    // Scored against a truth file (--truth); truthFile empty: not scored.
    std::string truthFile;
    FramingScore truth;
    // A recording replayed: what it holds, the camera's own time per analysed
    // frame, and the prediction check. recordingFile empty: not a recording.
    std::string recordingFile, recordingSummary;
    int recordedFrames = 0;
    uint64_t recordingCut = 0, recordingDropped = 0;
    Spread cameraFrameMs;
    Prediction prediction;
    bool cameraLog = false;  // read from a camera's console log alone
};

// A camera's own run, read from its console log alone (--camera-log): the
// same figures, with `frames` made from the log's own time stamps; the
// camera's time per analysed frame is the spread of its "all" stage times.
Summary summarise_camera_log(const RunInfo &run, const DaemonLog &daemon,
                             const std::vector<FrameLogEntry> &frames);

// The PTS of each taken frame of the daemon log (matched by order with the
// frame log's taken lines), -1 where the frame log has no such line.
std::vector<int64_t> taken_frame_times(const DaemonLog &daemon, const std::vector<FrameLogEntry> &frames);

Summary summarise(const RunInfo &run, const DaemonLog &daemon, const std::vector<FrameLogEntry> &frames,
                  const SimLog &sim, const std::vector<GammaAnswer> &gamma);

// The figures as JSON (written by the JSON library, in summary_json.cpp):
// one top-level key a line, what is under it on the same line.
std::string summary_json(const Summary &s);
// `haveVideo`/`haveTimeline`: whether the pictures were written.
std::string report_html(const Summary &s, bool haveVideo, bool haveTimeline);

}  // namespace replay

#endif
