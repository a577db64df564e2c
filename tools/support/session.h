/*
 * A run of the daemon beside its peers, in a runtime folder and shared-memory
 * key of its own: camera_sim as the camera's control process, faceDet on a
 * source, and gamma_peer as the image-tuning process when asked for. The
 * daemon is started as the camera would start it, apart from what its
 * environment says about the PC's platform; its control endpoint is driven
 * as the camera's control process drives it. facedet_replay and
 * facedet_live start their runs here.
 */
#ifndef FACEDET_TOOLS_SESSION_H
#define FACEDET_TOOLS_SESSION_H

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "child_process.h"
#include "run_folder.h"

// Where a tool's runs live: make_run_folder's pattern and key range.
struct SessionPlace {
    std::string folderPattern;
    unsigned keyBase = 0, keyMask = 0;
};

// The programs of a run, as the tool that starts it was built with.
struct SessionPrograms {
    std::string daemon, sim, gamma;
};

struct SessionOptions {
    SessionPlace place;
    SessionPrograms programs;
    std::string logDir;  // the processes' output and logs; empty: the runtime folder
    // A command the daemon is run under (e.g. an emulator and its options);
    // empty: the daemon runs itself.
    std::vector<std::string> daemonWrapper;
    // The host platform's settings.
    std::string source;
    std::string pace = "realtime";
    double frameCostMs = 0;  // 0: FACEDET_FRAME_COST_MS unset
    bool loop = false;       // FACEDET_LOOP
    bool exitAtEnd = false;  // FACEDET_EXIT_AT_END
    bool frameTap = false;   // FACEDET_FRAME_TAP into the runtime folder
    std::string engine;      // FACEDET_ENGINE; empty: the daemon's default
    // camera_sim moves on the source time the platform publishes (lockstep
    // and camera pace), not on the wall clock.
    bool simFollowsSourceClock = false;
    std::map<std::string, std::string> daemonEnv;  // more of the daemon's environment
};

class Session {
  public:
    enum class Start { Ok, NoFolder, NoCamera, NoDaemon };

    Session() = default;
    ~Session();  // stop()
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // Makes the folder, starts camera_sim and waits (up to 5 s) for its
    // socket, then starts the daemon. Anything but Ok comes with *error
    // (one line); NoFolder and NoCamera leave nothing behind, NoDaemon leaves
    // camera_sim running for stop(). Models that could not be linked into the
    // folder are named in *notes.
    Start start(const SessionOptions &options, std::string *error, std::vector<std::string> *notes = nullptr);
    // "run", "stop" or "off" to the daemon's control endpoint; false when it
    // could not be sent (no daemon listening yet, or any more).
    bool send_control(const std::string &command) const;
    // gamma_peer with `args`, on this run's segment; false when it cannot start.
    bool start_gamma_peer(const std::vector<std::string> &args);

    // The daemon first (SIGTERM, SIGKILL after `daemonGrace`), so that the
    // camera still takes what it sends while it stops; then camera_sim and
    // gamma_peer together within `peerGrace`. Removes the runtime folder and
    // the segment. True when the daemon ended without SIGKILL (or had ended).
    bool stop(std::chrono::milliseconds daemonGrace = std::chrono::seconds(15),
              std::chrono::milliseconds peerGrace = std::chrono::seconds(5));

    ChildProcess *daemon() const { return daemon_.get(); }
    ChildProcess *sim() const { return sim_.get(); }
    ChildProcess *gamma_peer() const { return gamma_.get(); }
    const std::string &runtime_dir() const { return folder_.dir; }
    const std::string &shm_key() const { return folder_.shmKey; }
    // A file of the runtime folder, and one of the logs.
    std::string path(const char *name) const { return folder_.path(name); }
    std::string log(const char *name) const { return logDir_ + "/" + name; }

  private:
    SessionOptions options_;
    RunFolder folder_;
    std::string logDir_;
    std::unique_ptr<ChildProcess> sim_, daemon_, gamma_;
    bool stopped_ = false;
};

#endif
