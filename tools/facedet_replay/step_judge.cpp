// The fourth step of a replay: the logs read back, whatever happened, and the
// run judged complete or not, with the reason.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "replay_steps.h"

namespace replay {

namespace {

std::string whole_seconds(double s) {
    char text[32];
    snprintf(text, sizeof text, "%.0f", s);
    return text;
}

}  // namespace

Logs judge(const Options &o, const Launch &l, const Supervision &s, RunInfo *run) {
    Logs logs;
    const Session &session = l.session;
    logs.daemonErr = read_text(session.log("daemon.err"));
    logs.daemon = parse_daemon_log(read_text(session.log("daemon.out")), logs.daemonErr);
    logs.frames = parse_frame_log(read_text(session.log("frames.log")));
    logs.sim = parse_sim_log(read_text(session.log("camera_sim.jsonl")));
    if (s.gammaStarted) {
        logs.gamma = parse_gamma_answers(read_text(session.log("gamma.jsonl")));
    }

    const std::string &err = logs.daemonErr;
    if (session.daemon() == nullptr) {
        run->reason = "the daemon could not be started";
    } else if (const size_t at = err.find("host platform: cannot open"); at != std::string::npos) {
        run->reason = "the daemon cannot open the source";
        run->notes.push_back(err.substr(at, err.find('\n', at) - at));
    } else if (s.interrupted) {
        run->reason = "interrupted after " + whole_seconds(run->wallSeconds) + " s";
    } else if (s.killedForTime) {
        run->reason = std::string(s.hung ? "daemon killed after " : "daemon stopped after ") +
                      whole_seconds(s.limit) + " s (time-out)";
    } else if (s.hung) {
        run->reason =
            "daemon killed: it did not end within " + std::to_string(kDaemonStopSeconds) + " s of SIGTERM";
    } else if (o.seconds == 0 && s.daemonEnded && run->daemonExit != 0) {
        run->reason =
            "the daemon ended with status " + std::to_string(run->daemonExit) + " before the clip's end";
    } else if (o.seconds > 0 && s.daemonEnded) {
        run->reason = "the daemon ended by itself (status " + std::to_string(run->daemonExit) + ") before " +
                      whole_seconds(o.seconds) + " s";
    } else if (!s.runSent) {
        run->reason = "auto framing was never switched on (the control socket took no command)";
    } else {
        run->complete = true;
        run->reason =
            o.seconds > 0 ? "played for " + whole_seconds(o.seconds) + " s" : "clip played to the end";
    }
    // The platform's count, said once when its producer ends.
    const std::string skipped = " frames of FACEDET_SOURCE could not be decoded and were skipped";
    if (const size_t end = err.find(skipped); end != std::string::npos) {
        const size_t start = err.rfind("host platform: ", end);
        if (start != std::string::npos) {
            run->sourceFramesFailed = std::atol(err.c_str() + start + std::strlen("host platform: "));
            run->notes.push_back(std::to_string(run->sourceFramesFailed) +
                                 " frames of the source could not be decoded and were skipped");
        }
    }
    if (logs.daemon.cutAtEnd) {
        run->notes.push_back("the daemon's log ends in a cut line");
    }
    if (s.simStatus != 0) {
        run->notes.push_back("camera_sim ended with status " + std::to_string(s.simStatus));
    }
    if (s.gammaStarted && s.gammaStatus != 0) {
        run->notes.push_back("gamma_peer ended with status " + std::to_string(s.gammaStatus));
    }
    return logs;
}

}  // namespace replay
