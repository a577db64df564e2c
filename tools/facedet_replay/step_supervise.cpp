// The third step of a replay: auto framing switched on, gamma_peer started
// when asked, the daemon watched to its end or its time limit, then the run
// shut down in order and its runtime folder and segment removed.
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <thread>

#include "replay_steps.h"

namespace fs = std::filesystem;

namespace replay {

namespace {

// facedet_ctl run, once the daemon's control socket is there.
bool switch_on(const Probe &p, const Launch &l) {
    if (!fs::exists(l.folder.dir + "/sin_addr.socket")) {
        return false;
    }
    try {
        ChildProcess ctl(p.ctlBin, {{"--runtime-dir", l.folder.dir, "run"},
                                    {},
                                    {},
                                    l.folder.dir,
                                    p.logs + "/facedet_ctl.out",
                                    p.logs + "/facedet_ctl.err"});
        return ctl.wait_exit(std::chrono::seconds(10)) == 0;
    } catch (const std::runtime_error &) {
        return false;
    }
}

std::unique_ptr<ChildProcess> start_gamma_peer(const Probe &p, const Launch &l) {
    try {
        return std::make_unique<ChildProcess>(
            p.gammaBin, ChildProcess::Options{
                            {"--every", "30", "--csv", p.logs + "/gamma.csv"},
                            {{"FACEDET_SHM_KEY", l.folder.shmKey}, {"FACEDET_RUNTIME_DIR", l.folder.dir}},
                            {},
                            l.folder.dir,
                            l.gammaOut,
                            p.logs + "/gamma_peer.err"});
    } catch (const std::runtime_error &) {
        return nullptr;
    }
}

}  // namespace

Supervision supervise(const Options &o, Probe &p, Launch &l, const volatile sig_atomic_t &stopRequested) {
    Supervision s;
    // How long the daemon may take: start-up, the clip at its own rate, and
    // room for slow (sanitizer) builds in lockstep.
    const SourceInfo &info = p.source;
    const double clipSeconds = info.frames > 0 ? static_cast<double>(info.frames) / info.fps : 600;
    s.limit = o.timeout > 0 ? o.timeout : (o.seconds > 0 ? o.seconds : 5 * clipSeconds) + 60;

    std::unique_ptr<ChildProcess> gamma;
    Clock::time_point runAt;
    while (l.daemon && !l.daemon->poll()) {
        if (stopRequested) {
            s.interrupted = true;
            break;
        }
        if (seconds_since(l.started) > s.limit) {
            s.killedForTime = true;
            break;
        }
        if (!s.runSent && switch_on(p, l)) {
            s.runSent = true;
            runAt = Clock::now();
        }
        if (o.gamma && !gamma && access(p.gammaBin.c_str(), X_OK) == 0 &&
            read_text(l.frameLog).find("taken") != std::string::npos) {
            // The daemon creates the segment when its frame thread starts.
            gamma = start_gamma_peer(p, l);
            s.gammaStarted = gamma != nullptr;
            p.run.gammaStatus = s.gammaStarted ? "ran" : "gamma_peer could not start";
        }
        if (o.seconds > 0 && s.runSent && seconds_since(runAt) >= o.seconds) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }

    // Shut down in order: the daemon, then the camera, then the tuning peer.
    s.daemonEnded = l.daemon && l.daemon->poll();
    if (l.daemon && !s.daemonEnded && !l.daemon->stop(std::chrono::seconds(kDaemonStopSeconds))) {
        s.hung = true;
    }
    l.sim->stop(std::chrono::seconds(5));
    s.simStatus = l.sim->status();
    if (gamma) {
        gamma->stop(std::chrono::seconds(5));
        s.gammaStatus = gamma->status();
    }
    remove_run_folder(&l.folder);
    p.run.daemonExit = l.daemon ? l.daemon->status() : -1;
    p.run.wallSeconds = seconds_since(l.started);
    return s;
}

}  // namespace replay
