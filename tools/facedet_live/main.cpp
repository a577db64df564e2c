/*
 * facedet_live: watch the camera frame people, live, in a browser. Plays a
 * webcam or a file through the real faceDet in realtime at the camera's pace,
 * with camera_sim as the camera, and serves a page with the replay's side by
 * side picture, the state, the camera's controls (run, stop, off, sent to the
 * daemon's control endpoint as the camera's control process sends them) and
 * a timeline of the last 30 s.
 */
#include <signal.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <sstream>
#include <thread>

#include "host_config.h"
#include "live_model.h"
#include "live_picture.h"
#include "live_server.h"
#include "live_session.h"
#include "tool_cli.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
    std::string source = "/dev/video0";
    int port = 8090;
    std::string listen = "127.0.0.1";
    double frameCostMs = host::kDefaultFrameCostMs;
    bool once = false;
    bool gamma = false;
    std::string engine;
};

// -1 to go on, else the exit status.
int parse_options(int argc, char **argv, Options *o) {
    CLI::App app{
        "Plays SOURCE (a webcam, a video, an image or a raw NV12 416x234 clip) through faceDet in\n"
        "realtime at the camera's pace, with camera_sim as the camera, and shows it live in a\n"
        "browser: the framing, the state, the camera's controls and the last 30 s.",
        "facedet_live"};
    tool_cli::set_up(app,
                     "facedet_live [SOURCE] [--port N] [--listen ADDR] [--frame-cost MS] [--once] [--gamma]\n"
                     "             [--engine mnn|opencv]");
    app.add_option("SOURCE", o->source, "what to play (default /dev/video0)")->type_name("");
    app.add_option("--port", o->port, "the page's port (default 8090; 0: any free one, printed)")
        ->type_name("N")
        ->check(tool_cli::whole_number(0, 65535, "a port from 0 to 65535"));
    app.add_option("--listen", o->listen,
                   "the address to listen on (default 127.0.0.1, this machine only;\n"
                   "there is no authentication)")
        ->type_name("ADDR");
    app.add_option("--frame-cost", o->frameCostMs,
                   "the camera's milliseconds per analysed frame (default the reference\n"
                   "camera's, as for facedet_replay)")
        ->type_name("MS")
        ->check(tool_cli::positive_number("milliseconds above 0 and up to 10000", 10000));
    app.add_flag("--once", o->once, "play a file once instead of looping it");
    app.add_flag("--gamma", o->gamma, "also run gamma_peer against the daemon");
    app.add_option("--engine", o->engine, "the daemon's face detector engine (default mnn)")->type_name("E");
    return tool_cli::parse(app, argc, argv);
}

// The daemon's own words when it ended before its first frame: the platform's
// line when there is one, else its last line.
std::string daemon_refusal(const std::string &err, int status) {
    std::istringstream lines(err);
    std::string last;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("host platform: ", 0) == 0) {
            return line;
        }
        if (!line.empty()) {
            last = line;
        }
    }
    return last.empty() ? "faceDet ended with status " + std::to_string(status) + " before its first frame"
                        : last;
}

}  // namespace

int main(int argc, char **argv) {
    Options o;
    if (const int status = parse_options(argc, argv, &o); status >= 0) {
        return status;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    tool_cli::stop_on_signals();

    std::mutex mu;  // guards the model: the main loop feeds it, the server reads it
    live::LiveModel model(o.source, o.frameCostMs);
    live::LiveSession session;
    live::FrameBroadcaster frames;
    const Clock::time_point started = Clock::now();
    const auto seconds = [&] { return std::chrono::duration<double>(Clock::now() - started).count(); };
    live::ServerHooks hooks;
    hooks.statusJson = [&] {
        std::lock_guard<std::mutex> lk(mu);
        return model.status_json();
    };
    hooks.timelineJson = [&] {
        std::lock_guard<std::mutex> lk(mu);
        return model.timeline_json(seconds());
    };
    // Empty when the daemon's control endpoint did not take the command.
    hooks.control = [&](const std::string &command) {
        if (!session.send_command(command)) {
            return std::string();
        }
        std::lock_guard<std::mutex> lk(mu);
        model.command_sent(command);
        return model.status_json();
    };
    live::LiveServer server(o.listen, o.port, hooks, frames);
    std::string error;
    // The port first: when it is taken, nothing else starts.
    if (!server.bind(&error)) {
        fprintf(stderr, "facedet_live: %s\n", error.c_str());
        return 1;
    }
    live::SessionOptions so;
    // The daemon runs in its runtime folder: a file is given to it whole.
    so.source = live::is_device(o.source) ? o.source : std::filesystem::absolute(o.source).string();
    so.frameCostMs = o.frameCostMs;
    so.once = o.once;
    so.gamma = o.gamma;
    so.engine = o.engine;
    so.programs = {FACEDET_LIVE_DAEMON, FACEDET_LIVE_CAMERA_SIM, FACEDET_LIVE_GAMMA_PEER};
    if (!session.start(so, &error)) {
        fprintf(stderr, "facedet_live: cannot start: %s\n", error.c_str());
        return 1;
    }
    // A source the platform cannot open ends the daemon at its stream start.
    ChildProcess &daemon = session.daemon();
    eventually(
        [&] {
            return logs::parse_daemon_log(daemon.out()).streamStarted || daemon.poll() ||
                   tool_cli::stop_requested();
        },
        std::chrono::seconds(10));
    if (daemon.poll()) {
        fprintf(stderr, "%s\n", daemon_refusal(daemon.err(), daemon.status()).c_str());
        session.stop();
        return 1;
    }
    // Set only now, so that the processes started keep the default: a
    // browser that goes away is found by the failed write.
    signal(SIGPIPE, SIG_IGN);
    server.start();
    printf("facedet_live: http://%s:%d/ (%s at the camera's pace, %g ms per analysed frame)\n",
           o.listen.c_str(), server.port(), o.source.c_str(), o.frameCostMs);
    if (o.listen != "127.0.0.1") {
        fprintf(stderr,
                "facedet_live: warning: listening on %s:%d with no authentication: whoever reaches it can "
                "move the camera\n",
                o.listen.c_str(), server.port());
    }

    live::LineTail daemonOut(session.path("daemon.out")), frameLog(session.path("frames.log")),
        simLog(session.path("camera_sim.jsonl"));
    live::LivePicture picture(session.path("frame_tap"), o.source);
    Clock::time_point lastPicture = Clock::now() - std::chrono::hours(1), lastSample = lastPicture;
    while (!tool_cli::stop_requested()) {
        const Clock::time_point now = Clock::now();
        // Every frame read, so that the one the daemon analysed is at hand;
        // converted outside the lock the page's requests wait on.
        const bool newer = picture.newer_frame();
        // At most 15 pictures a second, so the daemon keeps its CPU; and
        // once a second at least, so stream clients that left are noticed.
        const auto since = now - lastPicture;
        const bool draw =
            (since >= std::chrono::milliseconds(66) && newer) || since >= std::chrono::seconds(1);
        replay::Overlay overlay;
        logs::SimState camera;
        uint64_t analysedSource = 0;
        bool analysed = false;
        {
            std::lock_guard<std::mutex> lk(mu);
            daemonOut.poll([&](const std::string &line) { model.daemon_line(line); });
            frameLog.poll([&](const std::string &line) { model.frame_line(line); });
            simLog.poll([&](const std::string &line) { model.sim_line(line); });
            if (!model.daemon_ended() && daemon.poll()) {
                model.daemon_exited(daemon.status());  // shown; the last state stays served
            }
            if (now - lastSample >= std::chrono::milliseconds(200)) {
                model.sample(seconds());
                lastSample = now;
            }
            if (draw) {
                overlay = model.overlay();
                camera = model.camera();
                analysed = model.analysed_source(&analysedSource);
            }
        }
        if (draw) {
            frames.publish(picture.render(overlay, camera, analysed ? &analysedSource : nullptr));
            lastPicture = now;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    server.stop();
    session.stop();
    return 0;
}
