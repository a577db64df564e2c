// The first step of a replay: everything that can be refused is refused here,
// before a process starts (exit status 2), and the output folder is prepared.
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <system_error>

#include "replay_steps.h"

namespace fs = std::filesystem;

namespace replay {

namespace {

bool is_executable(const std::string &path) {
    return !path.empty() && access(path.c_str(), X_OK) == 0;
}

// A folder that holds nothing: none, or empty.
bool holds_nothing(const std::string &path) {
    std::error_code error;
    return !fs::exists(path, error) || (fs::is_directory(path, error) && fs::is_empty(path, error));
}

// A video is decoded once: the daemon's platform keeps a copy of the port's
// pictures for the replay's video. It takes 146 KB a frame, so only when the
// run's frames are known and fit, with 1 GiB to spare, on the output's disk.
std::string delivered_copy_path(const Options &o, const Probe &p) {
    if (p.source.kind != "video") {
        return "";  // raw clips and stills are read again at no cost
    }
    const double frames = o.seconds > 0 ? o.seconds * p.source.fps * 1.1 : p.source.frames * 1.1;
    std::error_code error;
    const fs::space_info space = fs::space(p.out, error);
    const double needed = frames * kFrameWidth * kFrameHeight * 3 / 2 + (1ull << 30);
    if (frames <= 0 || error || static_cast<double>(space.available) < needed) {
        return "";
    }
    return p.out + "/.delivered.tmp.nv12";
}

}  // namespace

bool probe(const Options &o, Probe *p) {
    p->source = probe_source(o.source);
    if (!p->source.ok) {
        fprintf(stderr, "facedet_replay: %s; nothing was started\n", p->source.error.c_str());
        return false;
    }
    if (!holds_nothing(o.out) && !o.force) {
        fprintf(stderr,
                "facedet_replay: output folder '%s' exists and is not empty (use --force to write into it)\n",
                o.out.c_str());
        return false;
    }
    p->out = fs::absolute(o.out).string();
    p->logs = p->out + "/logs";
    std::error_code error;
    fs::create_directories(p->logs, error);
    if (error) {
        fprintf(stderr, "facedet_replay: cannot create '%s': %s\n", p->logs.c_str(), error.message().c_str());
        return false;
    }
    // Results of an earlier run in a forced folder must not pass for this run's.
    for (const char *name : {"summary.json", "report.html", "replay.mp4", "timeline.png", "poster.png"}) {
        fs::remove(p->out + "/" + name, error);
    }

    p->programs = {FACEDET_REPLAY_DAEMON, FACEDET_REPLAY_CAMERA_SIM, FACEDET_REPLAY_GAMMA_PEER};
    for (const std::string &bin : {p->programs.daemon, p->programs.sim}) {
        if (!is_executable(bin)) {
            fprintf(stderr, "facedet_replay: '%s' is not built; nothing was started\n", bin.c_str());
            return false;
        }
    }

    RunInfo &run = p->run;
    run.source = fs::absolute(o.source).string();
    run.pace = o.pace;
    run.seconds = o.seconds;
    run.gammaAsked = o.gamma;
    if (o.gamma && !is_executable(p->programs.gamma)) {
        run.gammaStatus = "gamma_peer not built";
        fprintf(stderr, "facedet_replay: --gamma: gamma_peer not built (looked for %s)\n",
                p->programs.gamma.c_str());
        run.notes.push_back("gamma_peer not built: no gamma answers");
    }

    // A truth file that would score wrongly is refused, and the run goes on unscored.
    if (!o.truth.empty()) {
        std::string problem;
        if (!fs::exists(o.truth, error)) {
            problem = "cannot read it";
        } else if (parse_truth(read_text(o.truth), p->source.frames, &p->truth, &problem)) {
            p->truthPath = fs::absolute(o.truth).string();
        }
        if (p->truthPath.empty()) {
            fprintf(stderr, "facedet_replay: --truth %s: %s; the run is not scored\n", o.truth.c_str(),
                    problem.c_str());
            run.notes.push_back("not scored: " + o.truth + ": " + problem);
        }
    }
    p->delivered = delivered_copy_path(o, *p);
    return true;
}

}  // namespace replay
