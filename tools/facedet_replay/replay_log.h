// Reading the logs of a replay: the daemon's console, the host platform's
// frame log, camera_sim's JSON lines and gamma_peer's answers. Pure functions
// over text, so that logs cut by a killed process or interleaved by other
// threads are read the same way in the tool and in its tests.
#ifndef FACEDET_REPLAY_LOG_H
#define FACEDET_REPLAY_LOG_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace replay {

// The analysis port's picture size: the daemon's face boxes are in its pixels.
constexpr int kFrameWidth = 416;
constexpr int kFrameHeight = 234;

struct Box {
    int x = 0, y = 0, w = 0, h = 0;
};

// Auto framing as the frame loop saw it: MsgBuf[1] 0 stop, 1 run, 2 off.
enum class Mode { Unknown, Stop, Run, Off };
const char *mode_name(Mode mode);

// One frame the daemon took, in the order it took them.
struct TakenFrame {
    int frameNumber = 0;
    Mode mode = Mode::Unknown;
    bool analysed = false;      // past the warm-up: the stage lines follow
    bool framingRan = false;    // auto framing ran on it (the strategies line)
    bool stopFullView = false;  // stopped: the full view was sent
    int faceNum = -1;           // target selection's count; -1 when not printed
    std::vector<Box> faces;     // accepted boxes, 416x234
    bool hasPerson = false;
    Box person;          // personCenterRect, 1920x1080
    bool moved = false;  // the panPoint/tiltPoint/zoomPoint triple was printed
    int pan = 0, tilt = 0, zoom = 0;
    bool fullViewReset = false;  // reconstructed: see mark_reset()
    std::string decisionTrace;   // the move decision's trace line ("******** change_p = 1, ..."), if any
    // Stage times in ms, -1 when the line is missing.
    int getFrameMs = -1, autogammaMs = -1, invokeMs = -1, strategiesMs = -1, allMs = -1;
};

struct DaemonLog {
    std::vector<TakenFrame> frames;
    // The camera's milliseconds per analysed frame the platform charged or
    // held frames back by (its start-up line); -1 when none applied.
    double frameCostMs = -1;
    bool cutAtEnd = false;  // the last line had no line end
    // From the detector's start-up line; empty when it printed none.
    std::string engine, model;
};

// Removes ANSI escape sequences (ESC [ ... letter).
std::string strip_ansi(const std::string &text);

// Reads the daemon's stdout. `err` (its stderr) is only searched for the
// platform's frame cost. Lines are matched by their
// text anywhere in the line, since a printf without a line end lands in front
// of the next.
DaemonLog parse_daemon_log(const std::string &out, const std::string &err = "");

// The camera's milliseconds per analysed frame from the platform's start-up
// line on the daemon's stderr; -1 when there is none.
double frame_cost_of(const std::string &err);

// Analysed frames per second from their "all" stage times as the daemon
// prints them, in whole milliseconds: each frame gets half of one back, on
// average what the printing cut off. Each "all" time runs from the frame's
// wait to the end of its work, so their sum is the time those frames took.
double analysed_fps_of(size_t frames, double printedAllMsSum);

// The same reading, a line at a time, for output that is still growing.
class DaemonLogReader {
  public:
    // One whole line, without its line end.
    void line(const std::string &raw);
    // The frames completed so far (a frame is complete once the next begins),
    // handed over and forgotten, so that a long watch keeps little.
    std::vector<TakenFrame> take_completed();
    // Everything read, the last frame completed.
    DaemonLog finish();
    // The auto-framing command the frame loop last reported (every pass).
    Mode mode() const { return mode_; }

  private:
    void finish_frame();

    DaemonLog log_;
    Mode mode_ = Mode::Unknown;
    bool frameOpen_ = false;
    int pan_ = 0, tilt_ = 0;
    bool havePan_ = false, haveTilt_ = false;
    int noFaceFrames_ = 0;
};

// A face-less frame under auto framing counts toward giving the target up;
// the eleventh in a row sends the full view without a trace line of its own.
// Marks those frames, following the daemon's rule (move_decision.cpp); the
// count runs on in *count from one frame to the next.
void mark_reset(TakenFrame &frame, int *count, int noFaceFrames = 10);

struct FrameLogEntry {
    uint64_t sourceIndex = 0;
    uint64_t ptsUs = 0;
    bool taken = false;
    int chn = 0, port = 0;
};
// Whole lines only: a line cut by a killed process is left out.
std::vector<FrameLogEntry> parse_frame_log(const std::string &text);
// One line of it; false when it is not a frame's line.
bool parse_frame_line(const std::string &line, FrameLogEntry *entry);

struct SimState {
    int64_t tUs = 0;
    double pan = 0, tilt = 0, width = 1920, height = 1080;
    double targetPan = 0, targetTilt = 0, targetWidth = 1920;
    bool moving = false;
};
struct SimRx {
    int64_t tUs = 0;
    std::string name;  // empty for malformed packets
    bool error = false;
};
struct SimLog {
    std::vector<SimState> states;
    std::vector<SimRx> rx;
    bool started = false;
    std::string stopReason;  // empty when the log has no stop line
};
SimLog parse_sim_log(const std::string &text);
// One line of it, added to *log; other events and broken lines are skipped.
void parse_sim_line(const std::string &line, SimLog *log);
// The camera's state at `tUs`: the last sample at or before it (the full
// view before the first), moved on toward the next one in proportion to the
// time while the head moves.
SimState sim_state_at(const std::vector<SimState> &states, int64_t tUs);

struct GammaAnswer {
    int answer = 0, valid = 0, mean = 0, stdDev = 0, p50 = 0, strength = 0;
    bool accepted = false;
};
std::vector<GammaAnswer> parse_gamma_output(const std::string &text);

// Median and 95th percentile (nearest rank) of the values >= 0.
struct Spread {
    int count = 0;
    double median = 0, p95 = 0, max = 0;
};
Spread spread_of(std::vector<double> values);

}  // namespace replay

#endif
