// --camera-log: what a camera did, from its console log alone (what the
// start-up script writes to /var/log/faceDet.log): faces per analysed frame,
// moves and resets, run, stop and off, the stage times and the camera's time
// per analysed frame, as the timeline, summary.json and report.html.
#include <cstdio>
#include <filesystem>

#include "replay_render.h"
#include "replay_steps.h"

namespace fs = std::filesystem;

namespace replay {
namespace {

// The frames on the log's own clock, as the platform's frame log would have
// them; a frame without a stamp keeps the time of the one before.
std::vector<FrameLogEntry> frames_on_log_clock(const DaemonLog &daemon) {
    std::vector<FrameLogEntry> frames;
    double first = -1, last = 0;
    for (size_t i = 0; i < daemon.frames.size(); ++i) {
        const double at = daemon.frames[i].logSeconds;
        if (at >= 0 && first < 0) {
            first = at;
        }
        if (at >= 0) {
            last = at - first;
        }
        FrameLogEntry entry;
        entry.sourceIndex = i;
        entry.ptsUs = static_cast<uint64_t>(last * 1e6);
        entry.taken = true;
        frames.push_back(entry);
    }
    return frames;
}

}  // namespace

int replay_camera_log(const Options &o) {
    std::error_code error;
    if (!fs::is_regular_file(o.cameraLog, error)) {
        fprintf(stderr, "facedet_replay: --camera-log %s: no such file\n", o.cameraLog.c_str());
        return 2;
    }
    const DaemonLog daemon = parse_daemon_log(read_text(o.cameraLog));
    if (daemon.frames.empty()) {
        fprintf(stderr, "facedet_replay: --camera-log %s: no frame of faceDet's in it\n",
                o.cameraLog.c_str());
        return 2;
    }
    std::string out;
    if (!prepare_output(o, false, &out)) {  // no daemon runs, so no logs/
        return 2;
    }
    RunInfo run;
    run.source = fs::absolute(o.cameraLog).string();
    run.pace = "the camera's own";
    run.complete = true;
    run.reason =
        "camera log read: " + std::to_string(daemon.frames.size()) + " frames from the first whole one";
    if (daemon.cutAtEnd) {
        run.notes.push_back("the log ends in a cut line");
    }
    const std::vector<FrameLogEntry> frames = frames_on_log_clock(daemon);
    std::string timelineError;
    bool haveTimeline =
        render_timeline(frames, daemon, SimLog(), nullptr, out + "/.timeline.tmp.png", &timelineError);
    if (haveTimeline) {
        fs::rename(out + "/.timeline.tmp.png", out + "/timeline.png", error);
        haveTimeline = !error;
        timelineError = error.message();
    }
    if (!haveTimeline) {
        fs::remove(out + "/.timeline.tmp.png", error);
        run.notes.push_back("no timeline: " + timelineError);
    }
    const Summary summary = summarise_camera_log(run, daemon, frames);
    if (!write_whole(out + "/summary.json", summary_json(summary), run) ||
        !write_whole(out + "/report.html", report_html(summary, false, haveTimeline), run)) {
        fprintf(stderr, "facedet_replay: cannot write the report into '%s'\n", out.c_str());
        return 1;
    }
    const Spread &t = summary.cameraFrameMs;
    printf("facedet_replay: %s: %s\n", o.cameraLog.c_str(), run.reason.c_str());
    printf("  analysed %d, auto framing %d; faces mean %.2f max %d; moves %d, full-view resets %d\n",
           summary.analysed, summary.framingFrames, summary.facesMean, summary.facesMax, summary.moves,
           summary.resets);
    printf("  frames running %d, stopped %d; passes off %d; switches %d\n", summary.runFrames,
           summary.stopFrames, summary.offPasses, summary.modeSwitches);
    if (t.count > 0) {
        printf("  the camera's time per analysed frame: median %.1f ms, 95th percentile %.1f ms\n", t.median,
               t.p95);
    }
    printf("  report: %s/report.html\n", out.c_str());
    return 0;
}

}  // namespace replay
