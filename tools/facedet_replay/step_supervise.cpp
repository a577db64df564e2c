// The third step of a replay: auto framing switched on, gamma_peer started
// when asked, the daemon watched to its end or its time limit, then the run
// shut down in order and its runtime folder and segment removed.
#include <unistd.h>

#include <thread>

#include "replay_steps.h"

namespace replay {

Supervision supervise(const Options &o, Probe &p, Launch &l, const volatile sig_atomic_t &stopRequested) {
    Supervision s;
    Session &session = l.session;
    ChildProcess *daemon = session.daemon();
    // How long the daemon may take: start-up, the clip at its own rate, and
    // room for slow (sanitizer) builds in lockstep.
    const SourceInfo &info = p.source;
    const double clipSeconds = info.frames > 0 ? static_cast<double>(info.frames) / info.fps : 600;
    s.limit = o.timeout > 0 ? o.timeout : (o.seconds > 0 ? o.seconds : 5 * clipSeconds) + 60;

    Clock::time_point runAt;
    while (daemon && !daemon->poll()) {
        if (stopRequested) {
            s.interrupted = true;
            break;
        }
        if (seconds_since(l.started) > s.limit) {
            s.killedForTime = true;
            break;
        }
        // As soon as the control socket is there: the frame thread sleeps its
        // first two seconds, so auto framing runs from the first analysed frame.
        // A recording brings its own control datagrams, at its own frames.
        if (p.isRecording && !s.runSent) {
            s.runSent = true;
            runAt = Clock::now();
        } else if (!s.runSent && session.send_control("run")) {
            s.runSent = true;
            runAt = Clock::now();
        }
        if (o.gamma && !s.gammaStarted && access(p.programs.gamma.c_str(), X_OK) == 0 &&
            read_text(session.log("frames.log")).find("taken") != std::string::npos) {
            // The daemon creates the segment when its frame thread starts.
            s.gammaStarted = session.start_gamma_peer(
                {"--every", "30", "--jsonl", session.log("gamma.jsonl"), "--csv", session.log("gamma.csv")});
            p.run.gammaStatus = s.gammaStarted ? "ran" : "gamma_peer could not start";
        }
        if (o.seconds > 0 && s.runSent && seconds_since(runAt) >= o.seconds) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }

    // Shut down in order: the daemon, then the camera and the tuning peer.
    s.daemonEnded = daemon && daemon->poll();
    s.hung = !session.stop(std::chrono::seconds(kDaemonStopSeconds), std::chrono::seconds(5));
    s.simStatus = session.sim()->status();
    if (session.gamma_peer()) {
        s.gammaStatus = session.gamma_peer()->status();
    }
    p.run.daemonExit = daemon ? daemon->status() : -1;
    p.run.wallSeconds = seconds_since(l.started);
    return s;
}

}  // namespace replay
