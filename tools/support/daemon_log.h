// Reading the daemon's console, as every tool and test that looks at a run
// does: its frames, their stages, faces, choices, moves and sends, whole or a
// line at a time as the output grows. Pure functions over text, so that a log
// cut by a killed process, rotated on a camera or interleaved by other
// threads is read the same way everywhere.
#ifndef FACEDET_TOOLS_DAEMON_LOG_H
#define FACEDET_TOOLS_DAEMON_LOG_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// The daemon's face boxes are in pixels of its analysis picture (kFrameWidth
// x kFrameHeight); its face-less limit is kNoFaceFrames.
#include "faceDet/frame_geometry.h"
#include "faceDet/move_decision.h"

namespace logs {

struct Box {
    int x = 0, y = 0, w = 0, h = 0;
    float score = 0;  // face boxes: the detector's score
};

// Auto framing as the frame loop saw it: MsgBuf[1] 0 stop, 1 run, 2 off.
enum class Mode { Unknown, Stop, Run, Off };
const char *mode_name(Mode mode);
// The command of a MsgBuf[1] value, as the frame loop reads it.
Mode mode_of(unsigned value);

// One frame the daemon took, in the order it took them.
struct TakenFrame {
    int frameNumber = 0;
    // The clock of its frameNumber line ("[2026-01-14 09:30:12:345]"), in
    // seconds since 1970 read as UTC; -1 when the line has no time stamp.
    double logSeconds = -1;
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
    // What each send to the camera returned while the frame was handled
    // ("ret == N": the packet's length, or -1), in order.
    std::vector<int> sends;
    std::string decisionTrace;  // the move decision's trace line ("******** change_p = 1, ..."), if any
    // Stage times in ms, -1 when the line is missing.
    int getFrameMs = -1, autogammaMs = -1, invokeMs = -1, strategiesMs = -1, allMs = -1;
};

struct DaemonLog {
    std::vector<TakenFrame> frames;
    // The camera's milliseconds per analysed frame the platform charged or
    // held frames back by (its start-up line); -1 when none applied.
    double frameCostMs = -1;
    bool cutAtEnd = false;  // the last line had no line end
    int offPasses = 0;      // passes of the frame loop with auto framing off (no frame taken)
    // The analysis stream started (its pass line): the source could be opened.
    bool streamStarted = false;
    // From the detector's start-up line; empty when it printed none.
    std::string engine, model;
};

// Removes ANSI escape sequences (ESC [ ... letter).
std::string strip_ansi(const std::string &text);

// Reads the daemon's stdout. `err` (its stderr) is only searched for the
// platform's frame cost. Lines are matched by their text anywhere in the
// line, since a printf without a line end lands in front of the next. A log
// that begins inside a frame (a camera's rotated log) is read from its first
// whole frame on.
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
// the one after kNoFaceFrames in a row sends the full view without a trace
// line of its own. Marks those frames, following the daemon's rule; the
// count runs on in *count from one frame to the next.
void mark_reset(TakenFrame &frame, int *count, int noFaceFrames = kNoFaceFrames);

}  // namespace logs

#endif
