/*
 * facedet_replay: plays a video, image or raw NV12 clip through the real
 * faceDet on the host platform, with camera_sim as the camera, and renders
 * what the camera would have done: a side-by-side video, a timeline, an HTML
 * page and the figures as JSON. It reads only what the daemon, the platform
 * and the simulator already log; the daemon runs unchanged.
 */
#include <signal.h>

#include <cstdio>
#include <exception>

#include "recording/reader.h"
#include "replay_steps.h"
#include "tool_cli.h"

namespace {

// -1 to go on, else the exit status.
int parse_options(int argc, char **argv, replay::Options *o) {
    CLI::App app{
        "Plays SOURCE (video, image, raw NV12 416x234 clip or a camera's flight recording)\n"
        "through faceDet with camera_sim as the camera, and writes DIR/replay.mp4,\n"
        "timeline.png, report.html, summary.json and the raw logs in DIR/logs/. A recording\n"
        "is also checked: the PC's packets against the camera's, frame by frame.",
        "facedet_replay"};
    tool_cli::set_up(app,
                     "facedet_replay SOURCE --out DIR [--pace camera|lockstep|realtime|recorded]\n"
                     "               [--frame-cost MS] [--seconds S] [--gamma] [--force] [--timeout S]\n"
                     "               [--engine mnn|opencv] [--truth truth.csv] [--arm] [--expect-identical]\n"
                     "       facedet_replay --camera-log FILE --out DIR [--force]");
    app.add_option("SOURCE", o->source, "the clip to play")->type_name("");
    app.add_option("--out", o->out, "the folder for the results")->type_name("DIR");
    app.add_option("--pace", o->pace,
                   "camera (default): on the clip's time, each frame costs the camera's time\n"
                   "and frames that come meanwhile are dropped as the camera's port does;\n"
                   "lockstep: every frame, on the clip's time; realtime: the wall clock;\n"
                   "recorded (a recording's only pace): every frame the camera took, at its time")
        ->type_name("P")
        ->check(tool_cli::one_of({"camera", "lockstep", "realtime", "recorded"}));
    app.add_flag_callback(
        "--lockstep", [o] { o->pace = "lockstep"; }, "the same as --pace lockstep");
    app.add_option("--frame-cost", o->frameCostMs,
                   "the camera's milliseconds per analysed frame (camera pace: default\n"
                   "the platform's reference camera; realtime: hold each next frame back by it)")
        ->type_name("MS")
        ->check(tool_cli::positive_number("milliseconds above 0 and up to 10000", 10000));
    app.add_option("--seconds", o->seconds, "loop the source and stop after S seconds of auto framing")
        ->type_name("S")
        ->check(tool_cli::positive_number("a positive number of seconds", 86400));
    app.add_flag("--gamma", o->gamma, "run gamma_peer against the daemon and report its answers");
    app.add_flag("--force", o->force, "write into DIR even if it holds files (ours are replaced)");
    app.add_option("--engine", o->engine,
                   "the daemon's face detector engine (default: $FACEDET_ENGINE, else mnn,\n"
                   "the camera's quantised network; opencv: the float export)")
        ->type_name("E");
    app.add_option("--timeout", o->timeout,
                   "stop the daemon after S seconds (default: from the clip's length)")
        ->type_name("S")
        ->check(tool_cli::positive_number("a positive number of seconds", 86400));
    app.add_option("--truth", o->truth,
                   "score the camera's view against the true faces in F (CSV frame,person,x,y,w,h)")
        ->type_name("F");
    app.add_flag("--expect-identical", o->expectIdentical,
                 "a recording only: exit with status 3 when the PC's packets differ from the camera's");
    app.add_flag("--arm", o->arm,
                 "run the camera build (the arm preset's faceDet) under qemu-arm: the camera's own\n"
                 "arithmetic, where the PC's network rounds differently");
    app.add_option("--camera-log", o->cameraLog,
                   "no run: the timeline, report and summary of a camera's console log\n"
                   "(/var/log/faceDet.log)")
        ->type_name("FILE");
    if (const int status = tool_cli::parse(app, argc, argv); status >= 0) {
        return status;
    }
    if (!o->cameraLog.empty()) {
        if (!o->source.empty()) {
            return tool_cli::usage_error(app, "--camera-log reads a camera's log alone: give no SOURCE");
        }
        if (o->out.empty()) {
            return tool_cli::usage_error(app, "--camera-log FILE needs --out DIR (try --help)");
        }
        return -1;
    }
    if (o->expectIdentical && !o->source.empty() && !recording::is_recording_path(o->source)) {
        return tool_cli::usage_error(
            app, "--expect-identical checks the replay of a recording, and '" + o->source + "' is none");
    }
    if (o->source.empty() || o->out.empty()) {
        return tool_cli::usage_error(app, "SOURCE and --out DIR are needed (try --help)");
    }
    if (o->frameCostMs > 0 && o->pace == "lockstep") {
        return tool_cli::usage_error(app,
                                     "--frame-cost applies to the camera and realtime paces, not lockstep");
    }
    return -1;
}

int run_replay(const replay::Options &o) {
    if (!o.cameraLog.empty()) {
        return replay::replay_camera_log(o);
    }
    replay::Probe probe;
    if (!replay::probe(o, &probe)) {
        return 2;  // refused before anything started
    }
    replay::Launch launch;
    if (const int status = replay::launch(o, probe, &launch); status != 0) {
        return status;
    }
    const replay::Supervision supervision = replay::supervise(o, probe, launch, tool_cli::stop_requested());
    const replay::Logs logs = replay::judge(o, launch, supervision, &probe.run);
    return replay::render(probe, logs, probe.run);
}

}  // namespace

int main(int argc, char **argv) {
    replay::Options o;
    if (const int status = parse_options(argc, argv, &o); status >= 0) {
        return status;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    tool_cli::stop_on_signals();
    try {
        return run_replay(o);
    } catch (const std::exception &e) {
        fprintf(stderr, "facedet_replay: %s\n", e.what());
    } catch (...) {
        fprintf(stderr, "facedet_replay: unexpected error\n");
    }
    return 1;
}
