// The steps of a replay, in the order main runs them: probe what was asked
// for, launch camera_sim and the daemon, supervise the run, judge it from the
// logs, render the results. Each step hands the next what it found.
#ifndef FACEDET_REPLAY_STEPS_H
#define FACEDET_REPLAY_STEPS_H

#include <signal.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "camera_recording.h"
#include "replay_report.h"
#include "replay_source.h"
#include "session.h"
#include "truth_file.h"

namespace replay {

struct Options {
    std::string source;
    std::string out;
    std::string pace;  // camera, lockstep, realtime or recorded; empty: recorded for a recording, else camera
    double frameCostMs = 0;  // 0: the platform's default (camera) or none (realtime)
    double seconds = 0;
    bool gamma = false;
    bool force = false;
    std::string engine;            // empty: the daemon's default
    double timeout = 0;            // 0: from the clip's length
    std::string truth;             // empty: not scored
    bool expectIdentical = false;  // a recording's prediction that differs: exit status 3
    bool arm = false;              // the camera build (arm preset) under qemu-arm
    std::string cameraLog;         // --camera-log: a camera's console log instead of a run
};

// Exit status of a replayed recording whose packets differ from the camera's
// under --expect-identical.
constexpr int kPredictionDiffers = 3;

// How long the daemon may take to end after SIGTERM before it is killed.
constexpr int kDaemonStopSeconds = 15;

// The wall clock of the run, from its start.
using Clock = std::chrono::steady_clock;
double seconds_since(Clock::time_point start);

// Everything checked before a process starts.
struct Probe {
    SourceInfo source;
    std::string out, logs;  // absolute: the output folder and its logs/
    SessionPrograms programs;
    Truth truth;
    std::string truthPath;  // absolute; empty: the run is not scored
    // The daemon's copy of the frames it was given (FACEDET_DELIVERED_FRAMES),
    // which the video is drawn from; empty: the video decodes the source again.
    std::string delivered;
    RunInfo run;  // what is known of the run so far
    bool isRecording = false;
    CameraRecording recorded;  // the recording replayed, read whole
    bool expectIdentical = false;
    bool arm = false;  // the daemon is the camera build under qemu-arm
};

// Refuses bad input with one line on stderr (false: exit status 2); else
// prepares the output folder and finds the programs.
bool probe(const Options &o, Probe *p);

// The processes of a run; their logs go into the output folder's logs/.
struct Launch {
    Session session;
    Clock::time_point started;
};

// Starts camera_sim, then the daemon: 0 to go on, else the exit status (2 no
// runtime folder, 1 camera_sim cannot start). A daemon that cannot start
// leaves `daemon` empty.
int launch(const Options &o, Probe &p, Launch *l);

// How the run went, as the supervisor saw it.
struct Supervision {
    bool runSent = false;  // facedet_ctl switched auto framing on
    bool gammaStarted = false, interrupted = false, killedForTime = false;
    bool hung = false;         // the daemon needed SIGKILL
    bool daemonEnded = false;  // it ended by itself
    double limit = 0;          // the time-out that applied, in seconds
    int simStatus = -1, gammaStatus = -1;
};

// Switches auto framing on and starts gamma_peer when asked, and watches the
// daemon until it ends, the time is up or `stopRequested` is set; then shuts
// down the daemon, the camera and the tuning peer in that order and removes
// the runtime folder and the segment. Fills in the daemon's exit and the
// run's wall time.
Supervision supervise(const Options &o, Probe &p, Launch &l, const volatile sig_atomic_t &stopRequested);

// The logs of a run, read back whatever happened.
struct Logs {
    std::string daemonErr;
    DaemonLog daemon;
    std::vector<FrameLogEntry> frames;
    SimLog sim;
    std::vector<GammaAnswer> gamma;
};

// Reads the logs and decides whether the run is complete, and why not.
Logs judge(const Options &o, const Launch &l, const Supervision &s, RunInfo *run);

// Writes the video, the timeline, summary.json and report.html into the
// output folder, each under a temporary name until whole, and prints the
// tool's last lines. Returns the exit status.
int render(const Probe &p, const Logs &logs, RunInfo &run);

// --camera-log: the timeline, summary.json and report.html of a camera's
// console log, with no run. Returns the exit status.
int replay_camera_log(const Options &o);

// The output folder, checked and prepared as every replay does it; false
// after one line on stderr. withLogs also makes its logs/ folder, for a
// run's raw logs. *abs is its absolute path.
bool prepare_output(const Options &o, bool withLogs, std::string *abs);

// Writes `text` into `path` through a temporary name; false on failure.
bool write_whole(const std::string &path, const std::string &text, RunInfo &run);

}  // namespace replay

#endif
