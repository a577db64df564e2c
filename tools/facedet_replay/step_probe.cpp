// The first step of a replay: everything that can be refused is refused here,
// before a process starts (exit status 2), and the output folder is prepared.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "replay_steps.h"

namespace fs = std::filesystem;

namespace replay {

namespace {

constexpr char kQemuArm[] = "/usr/bin/qemu-arm";

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
    if (p.source.kind != "video" && p.source.kind != "recording") {
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

bool prepare_output(const Options &o, bool withLogs, std::string *abs) {
    if (!holds_nothing(o.out) && !o.force) {
        fprintf(stderr,
                "facedet_replay: output folder '%s' exists and is not empty (use --force to write into it)\n",
                o.out.c_str());
        return false;
    }
    *abs = fs::absolute(o.out).string();
    std::error_code error;
    const std::string made = withLogs ? *abs + "/logs" : *abs;
    fs::create_directories(made, error);
    if (error) {
        fprintf(stderr, "facedet_replay: cannot create '%s': %s\n", made.c_str(), error.message().c_str());
        return false;
    }
    // Results of an earlier run in a forced folder must not pass for this run's.
    for (const char *name : {"summary.json", "report.html", "replay.mp4", "timeline.png", "poster.png"}) {
        fs::remove(*abs + "/" + name, error);
    }
    return true;
}

bool probe(const Options &o, Probe *p) {
    p->source = probe_source(o.source);
    if (!p->source.ok) {
        fprintf(stderr, "facedet_replay: %s; nothing was started\n", p->source.error.c_str());
        return false;
    }
    p->isRecording = p->source.kind == "recording";
    if (p->isRecording) {
        std::string error;
        if (!read_camera_recording(fs::absolute(o.source).string(), &p->recorded, &error)) {
            fprintf(stderr, "facedet_replay: %s\n", error.c_str());
            return false;
        }
        const CameraRecording &rec = p->recorded;
        if (rec.frames.empty()) {
            fprintf(stderr, "facedet_replay: %s: the recording holds no frame\n", rec.file.c_str());
            return false;
        }
        p->source.frames = static_cast<long>(rec.frames.size());
        const double span = (rec.frames.back().timeUs - rec.frames.front().timeUs) / 1e6;
        p->source.fps = span > 0 ? (rec.frames.size() - 1) / span : 30;
    }
    const std::string pace = !o.pace.empty() ? o.pace : p->isRecording ? "recorded" : "camera";
    if (p->isRecording != (pace == "recorded")) {
        fprintf(stderr, "facedet_replay: %s\n",
                p->isRecording ? "a recording plays at the recorded pace: the camera's frames, each once"
                               : "--pace recorded plays a flight recording, and the source is none");
        return false;
    }
    if (!prepare_output(o, true, &p->out)) {
        return false;
    }
    p->logs = p->out + "/logs";
    std::error_code error;

    p->programs = {FACEDET_REPLAY_DAEMON, FACEDET_REPLAY_CAMERA_SIM, FACEDET_REPLAY_GAMMA_PEER};
    if (o.arm) {
        const char *armDaemon = getenv("FACEDET_ARM_DAEMON");
        p->programs.daemon = armDaemon != nullptr && *armDaemon ? armDaemon : FACEDET_REPLAY_ARM_DAEMON;
        if (!is_executable(kQemuArm)) {
            fprintf(stderr, "facedet_replay: --arm needs %s (Debian's qemu-user); nothing was started\n",
                    kQemuArm);
            return false;
        }
    }
    for (const std::string &bin : {p->programs.daemon, p->programs.sim}) {
        if (!is_executable(bin)) {
            fprintf(stderr, "facedet_replay: '%s' is not built; nothing was started\n", bin.c_str());
            return false;
        }
    }

    RunInfo &run = p->run;
    run.source = fs::absolute(o.source).string();
    run.pace = pace;
    p->expectIdentical = o.expectIdentical;
    p->arm = o.arm;
    if (p->isRecording) {
        const CameraRecording &rec = p->recorded;
        if (rec.damaged) {
            run.notes.push_back("the recording is damaged: " + rec.summary +
                                "; the whole records before the damage were replayed");
        }
        if (rec.dropped > 0) {
            run.notes.push_back("the recorder dropped " + std::to_string(rec.dropped) +
                                " events on the camera: the prediction may differ where they were");
        }
    }
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
