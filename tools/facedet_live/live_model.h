/*
 * What the live page shows, built from the logs of the running processes as
 * they grow: the daemon's console (through the replay's reader), the
 * platform's frame log and camera_sim's JSON lines. It keeps the newest state
 * and the last 30 s of the timeline, so a watch of any length keeps little.
 *
 * Thread-bound: the tool's main loop feeds it; the server's threads read its
 * JSON through the lock the tool holds around it.
 */
#ifndef FACEDET_LIVE_MODEL_H
#define FACEDET_LIVE_MODEL_H

#include <sys/types.h>

#include <deque>
#include <functional>
#include <string>

#include "frame_picture.h"
#include "replay_logs.h"

namespace live {

constexpr double kTimelineSeconds = 30;

// What a file has gained since the last look, a whole line at a time.
class LineTail {
  public:
    explicit LineTail(std::string path) : path_(std::move(path)) {}
    void poll(const std::function<void(const std::string &)> &line);

  private:
    std::string path_;
    off_t offset_ = 0;
    std::string partial_;
};

struct TimelineSample {
    double t = 0;  // seconds since the start
    int panCommanded = 0, tiltCommanded = 0, zoomCommanded = 1920;
    double pan = 0, tilt = 0, width = 1920;
    int faces = 0;
};

class LiveModel {
  public:
    // frameCostMs: what the daemon was told.
    LiveModel(std::string source, double frameCostMs);

    void daemon_line(const std::string &line);
    void frame_line(const std::string &line);
    void sim_line(const std::string &line);
    // A command sent through the control endpoint; shown until the daemon's
    // next pass reports its own.
    void command_sent(const std::string &command);
    void daemon_exited(int status);
    // Adds a timeline sample at `nowS` and forgets those older than 30 s.
    void sample(double nowS);

    const replay::Overlay &overlay() const { return overlay_; }
    // The source frame the overlay's faces were found in; false before the
    // first analysed frame, or while auto framing does not run.
    bool analysed_source(uint64_t *sourceIndex) const;
    const logs::SimState &camera() const { return camera_; }
    bool daemon_ended() const { return exited_; }

    std::string status_json() const;
    std::string timeline_json(double nowS) const;

  private:
    void take(const logs::TakenFrame &frame);

    std::string source_;
    double frameCostMs_;
    logs::DaemonLogReader daemon_;
    replay::Overlay overlay_;
    logs::SimState camera_;
    long framesTaken_ = 0, framesAnalysed_ = 0;
    long framesCompleted_ = 0;           // the daemon's frames read whole, in the order taken
    std::deque<uint64_t> takenSources_;  // source index of the last taken frames, oldest first
    bool hasAnalysedSource_ = false;
    uint64_t analysedSource_ = 0;
    std::deque<double> recentAllMs_;  // "all" stage times of the last analysed frames
    std::string pendingCommand_;      // sent, not yet reported by the daemon
    logs::Mode modeAtSend_ = logs::Mode::Unknown;
    // The last frame that moved the camera or sent it to the full view, whose
    // framing the overlay holds.
    int decisionFrame_ = 0;
    std::string decisionText_;
    bool exited_ = false;
    int exitStatus_ = 0;
    std::deque<TimelineSample> timeline_;
};

}  // namespace live

#endif
