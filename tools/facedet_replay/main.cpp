/*
 * facedet_replay: plays a video, image or raw NV12 clip through the real
 * faceDet on the host platform, with camera_sim as the camera, and renders
 * what the camera would have done: a side-by-side video, a timeline, an HTML
 * page and the figures as JSON. It reads only what the daemon, the platform
 * and the simulator already log; the daemon runs unchanged.
 */
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "replay_log.h"
#include "replay_render.h"
#include "replay_report.h"
#include "truth_file.h"

namespace {

volatile sig_atomic_t s_interrupted = 0;

void on_signal(int) {
    s_interrupted = 1;
}

struct Options {
    std::string source;
    std::string out;
    std::string pace = "camera";  // camera, lockstep or realtime
    double frameCostMs = 0;       // 0: the platform's default (camera) or none (realtime)
    double seconds = 0;
    bool gamma = false;
    bool force = false;
    std::string engine;  // empty: the daemon's default
    double timeout = 0;  // 0: from the clip's length
    std::string truth;   // empty: not scored
};

void usage(FILE *out) {
    fprintf(
        out,
        "usage: facedet_replay SOURCE --out DIR [--pace camera|lockstep|realtime] [--frame-cost MS]\n"
        "                      [--seconds S] [--gamma] [--force] [--timeout S] [--engine mnn|opencv]\n"
        "                      [--truth truth.csv]\n"
        "  Plays SOURCE (video, image or raw NV12 416x234 clip) through faceDet with camera_sim\n"
        "  as the camera, and writes DIR/replay.mp4, timeline.png, report.html, summary.json\n"
        "  and the raw logs in DIR/logs/.\n"
        "  --pace P     camera (default): on the clip's time, each frame costs the camera's time\n"
        "               and frames that come meanwhile are dropped as the camera's port does;\n"
        "               lockstep: every frame, on the clip's time; realtime: the wall clock\n"
        "  --lockstep   the same as --pace lockstep\n"
        "  --frame-cost MS  the camera's milliseconds per analysed frame (camera pace: default\n"
        "               the platform's reference camera; realtime: hold each next frame back by it)\n"
        "  --seconds S  loop the source and stop after S seconds of auto framing\n"
        "  --gamma      run gamma_peer against the daemon and report its answers\n"
        "  --force      write into DIR even if it holds files (ours are replaced)\n"
        "  --engine E   the daemon's face detector engine (default: $FACEDET_ENGINE, else mnn,\n"
        "               the camera's quantised network; opencv: the float export)\n"
        "  --timeout S  stop the daemon after S seconds (default: from the clip's length)\n"
        "  --truth F    score the camera's view against the true faces in F (CSV frame,person,x,y,w,h)\n");
}

bool parse_positive(const char *text, double limit, double *value) {
    char *end = nullptr;
    errno = 0;
    const double v = strtod(text, &end);
    if (errno != 0 || end == text || *end != '\0' || !(v > 0) || v > limit) {
        return false;
    }
    *value = v;
    return true;
}

// 0 to go on, else the exit status.
int parse_options(int argc, char **argv, Options *o) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool hasValue = i + 1 < argc;
        if (arg == "--help" || arg == "-h") {
            usage(stdout);
            return -1;
        } else if (arg == "--out" && hasValue) {
            o->out = argv[++i];
        } else if (arg == "--lockstep") {
            o->pace = "lockstep";
        } else if (arg == "--pace" && hasValue) {
            o->pace = argv[++i];
            if (o->pace != "camera" && o->pace != "lockstep" && o->pace != "realtime") {
                fprintf(stderr, "facedet_replay: --pace is camera, lockstep or realtime, not '%s'\n",
                        argv[i]);
                return 2;
            }
        } else if (arg == "--frame-cost" && hasValue) {
            if (!parse_positive(argv[++i], 10000, &o->frameCostMs)) {
                fprintf(stderr,
                        "facedet_replay: --frame-cost wants milliseconds above 0 and up to 10000, not '%s'\n",
                        argv[i]);
                return 2;
            }
        } else if (arg == "--gamma") {
            o->gamma = true;
        } else if (arg == "--truth" && hasValue) {
            o->truth = argv[++i];
        } else if (arg == "--engine" && hasValue) {
            o->engine = argv[++i];
        } else if (arg == "--force") {
            o->force = true;
        } else if ((arg == "--seconds" || arg == "--timeout") && hasValue) {
            if (!parse_positive(argv[++i], 86400, arg == "--seconds" ? &o->seconds : &o->timeout)) {
                fprintf(stderr, "facedet_replay: %s wants a positive number of seconds, not '%s'\n",
                        arg.c_str(), argv[i]);
                return 2;
            }
        } else if (arg.rfind("--", 0) != 0 && o->source.empty()) {
            o->source = arg;
        } else {
            fprintf(stderr, "facedet_replay: unknown or incomplete argument '%s' (try --help)\n",
                    arg.c_str());
            return 2;
        }
    }
    if (o->source.empty() || o->out.empty()) {
        usage(stderr);
        return 2;
    }
    if (o->frameCostMs > 0 && o->pace == "lockstep") {
        fprintf(stderr,
                "facedet_replay: --frame-cost applies to the camera and realtime paces, not lockstep\n");
        return 2;
    }
    return 0;
}

double now_s() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

void sleep_ms(int ms) {
    struct timespec ts = {ms / 1000, (ms % 1000) * 1000000L};
    nanosleep(&ts, nullptr);
}

bool exists(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

bool is_executable(const std::string &path) {
    return !path.empty() && access(path.c_str(), X_OK) == 0;
}

std::string read_text(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

bool write_text(const std::string &path, const std::string &text) {
    FILE *f = fopen(path.c_str(), "wb");
    if (f == nullptr) {
        return false;
    }
    const bool ok = fwrite(text.data(), 1, text.size(), f) == text.size();
    return fclose(f) == 0 && ok;
}

std::string absolute(const std::string &path) {
    if (!path.empty() && path[0] == '/') {
        return path;
    }
    char cwd[PATH_MAX];
    if (getcwd(cwd, sizeof cwd) == nullptr) {
        return path;
    }
    return std::string(cwd) + "/" + path;
}

std::string dir_of(const std::string &path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

// A folder that holds nothing: none, or empty.
bool dir_is_empty(const std::string &path) {
    DIR *d = opendir(path.c_str());
    if (d == nullptr) {
        return true;
    }
    bool empty = true;
    while (struct dirent *e = readdir(d)) {
        if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) {
            empty = false;
            break;
        }
    }
    closedir(d);
    return empty;
}

bool make_dirs(const std::string &path) {
    std::string at;
    std::stringstream parts(path);
    std::string part;
    if (!path.empty() && path[0] == '/') {
        at = "/";
    }
    while (std::getline(parts, part, '/')) {
        if (part.empty()) {
            continue;
        }
        at += part + "/";
        if (mkdir(at.c_str(), 0755) != 0 && errno != EEXIST) {
            return false;
        }
    }
    return true;
}

void remove_tree(const std::string &path) {
    DIR *d = opendir(path.c_str());
    if (d != nullptr) {
        while (struct dirent *e = readdir(d)) {
            if (strcmp(e->d_name, ".") == 0 || strcmp(e->d_name, "..") == 0) {
                continue;
            }
            const std::string child = path + "/" + e->d_name;
            struct stat st;
            if (lstat(child.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
                remove_tree(child);
            } else {
                unlink(child.c_str());
            }
        }
        closedir(d);
    }
    rmdir(path.c_str());
}

// A child with its own environment and working directory, its output in files.
class Child {
  public:
    bool start(const std::string &program, const std::vector<std::string> &args,
               const std::map<std::string, std::string> &env, const std::vector<std::string> &unset,
               const std::string &workDir, const std::string &outPath, const std::string &errPath) {
        fflush(stdout);
        fflush(stderr);
        pid_ = fork();
        if (pid_ < 0) {
            return false;
        }
        if (pid_ == 0) {
            // Only async-signal-safe work would be strictly correct here; this
            // process has no other threads, so the C library is in a sane state.
            for (const std::string &name : unset) {
                unsetenv(name.c_str());
            }
            for (const auto &[name, value] : env) {
                setenv(name.c_str(), value.c_str(), 1);
            }
            if (!workDir.empty() && chdir(workDir.c_str()) != 0) {
                _exit(126);
            }
            const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            if (out < 0 || err < 0) {
                _exit(126);
            }
            dup2(out, 1);
            dup2(err, 2);
            std::vector<char *> argv;
            argv.push_back(const_cast<char *>(program.c_str()));
            for (const std::string &a : args) {
                argv.push_back(const_cast<char *>(a.c_str()));
            }
            argv.push_back(nullptr);
            execv(program.c_str(), argv.data());
            _exit(127);
        }
        return true;
    }

    bool running() const { return pid_ > 0 && !done_; }
    int status() const { return status_; }

    // True once the child has exited (status() then holds how).
    bool poll() {
        if (pid_ <= 0 || done_) {
            return done_;
        }
        int raw = 0;
        if (waitpid(pid_, &raw, WNOHANG) == pid_) {
            done_ = true;
            status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
        }
        return done_;
    }

    void signal(int sig) const {
        if (pid_ > 0 && !done_) {
            kill(pid_, sig);
        }
    }

    // Waits up to `seconds`; true when it exited.
    bool wait(double seconds) {
        const double end = now_s() + seconds;
        while (!poll()) {
            if (now_s() > end) {
                return false;
            }
            sleep_ms(20);
        }
        return true;
    }

    // SIGTERM, then SIGKILL after `grace` seconds. True when SIGTERM was enough.
    bool stop(double grace) {
        if (!running()) {
            return true;
        }
        signal(SIGTERM);
        if (wait(grace)) {
            return true;
        }
        signal(SIGKILL);
        wait(5);
        return false;
    }

  private:
    pid_t pid_ = -1;
    bool done_ = false;
    int status_ = -1;
};

std::string fmt_seconds(double s) {
    char text[32];
    snprintf(text, sizeof text, "%.0f", s);
    return text;
}

// Moves the finished file into place; the temporary name never passes for the real one.
bool publish(const std::string &tmp, const std::string &final, replay::RunInfo &run) {
    if (rename(tmp.c_str(), final.c_str()) != 0) {
        run.notes.push_back("cannot rename " + tmp + ": " + strerror(errno));
        return false;
    }
    return true;
}

int run_replay(const Options &o) {
    // Bad input is refused before anything starts.
    const replay::SourceInfo info = replay::probe_source(o.source);
    if (!info.ok) {
        fprintf(stderr, "facedet_replay: %s; nothing was started\n", info.error.c_str());
        return 2;
    }
    if (exists(o.out) && !dir_is_empty(o.out) && !o.force) {
        fprintf(stderr,
                "facedet_replay: output folder '%s' exists and is not empty (use --force to write into it)\n",
                o.out.c_str());
        return 2;
    }
    const std::string out = absolute(o.out);
    const std::string logs = out + "/logs";
    if (!make_dirs(logs)) {
        fprintf(stderr, "facedet_replay: cannot create '%s': %s\n", logs.c_str(), strerror(errno));
        return 2;
    }
    // Results of an earlier run in a forced folder must not pass for this run's.
    for (const char *name : {"summary.json", "report.html", "replay.mp4", "timeline.png"}) {
        unlink((out + "/" + name).c_str());
    }

    char selfPath[PATH_MAX] = {0};
    const ssize_t n = readlink("/proc/self/exe", selfPath, sizeof selfPath - 1);
    const std::string toolsDir = n > 0 ? dir_of(dir_of(std::string(selfPath, static_cast<size_t>(n)))) : ".";
    const std::string daemonBin = FACEDET_REPLAY_DAEMON;
    const std::string simBin = FACEDET_REPLAY_CAMERA_SIM;
    const std::string ctlBin = FACEDET_REPLAY_CTL;
    std::string gammaBin = FACEDET_REPLAY_GAMMA_PEER;
    if (!is_executable(gammaBin)) {
        gammaBin = toolsDir + "/gamma_peer/gamma_peer";  // built after this tool was configured
    }
    for (const std::string &bin : {daemonBin, simBin, ctlBin}) {
        if (!is_executable(bin)) {
            fprintf(stderr, "facedet_replay: '%s' is not built; nothing was started\n", bin.c_str());
            return 2;
        }
    }

    replay::RunInfo run;
    run.source = absolute(o.source);
    run.pace = o.pace;
    run.seconds = o.seconds;
    run.gammaAsked = o.gamma;
    if (o.gamma && !is_executable(gammaBin)) {
        run.gammaStatus = "gamma_peer not built";
        fprintf(stderr, "facedet_replay: --gamma: gamma_peer not built (looked for %s)\n", gammaBin.c_str());
        run.notes.push_back("gamma_peer not built: no gamma answers");
    }

    // A truth file that would score wrongly is refused, and the run goes on unscored.
    replay::Truth truth;
    std::string truthPath;
    if (!o.truth.empty()) {
        std::string error;
        if (!exists(o.truth)) {
            error = "cannot read it";
        } else if (replay::parse_truth(read_text(o.truth), info.frames, &truth, &error)) {
            truthPath = absolute(o.truth);
        }
        if (truthPath.empty()) {
            fprintf(stderr, "facedet_replay: --truth %s: %s; the run is not scored\n", o.truth.c_str(),
                    error.c_str());
            run.notes.push_back("not scored: " + o.truth + ": " + error);
        }
    }

    char rtTemplate[] = "/tmp/facedet_replay.XXXXXX";
    if (mkdtemp(rtTemplate) == nullptr) {
        fprintf(stderr, "facedet_replay: cannot create a runtime folder: %s\n", strerror(errno));
        return 2;
    }
    const std::string rt = rtTemplate;
    // The daemon loads its model from its working directory, as on the camera.
    for (const char *model : {"slim-320-quant-ADMM-50.mnn", "slim-320.onnx"}) {
        const std::string target = std::string(FACEDET_SHARED_DIR) + "/models/" + model;
        if (symlink(target.c_str(), (rt + "/" + model).c_str()) != 0) {
            run.notes.push_back(std::string("cannot link the model ") + model);
        }
    }

    const std::string frameLogPath = logs + "/frames.log";
    const std::string simLogPath = logs + "/camera_sim.jsonl";
    const std::string daemonOut = logs + "/daemon.out", daemonErr = logs + "/daemon.err";
    const std::string gammaOut = logs + "/gamma_peer.out";
    // A key of our own: the default segment of a camera process is never touched.
    const std::string shmKey = std::to_string(0x52500000 + (getpid() & 0xfffff));

    const double started = now_s();
    Child sim, daemon, gamma;
    printf("facedet_replay: %s (%s, %.2f fps%s), %s\n", run.source.c_str(), info.kind.c_str(), info.fps,
           info.frames > 0 ? (", " + std::to_string(info.frames) + " frames").c_str() : "", run.pace.c_str());
    // Lockstep and camera pace: the camera moves on the source time the platform publishes.
    std::vector<std::string> simArgs = {"--runtime-dir", rt, "--log", simLogPath};
    if (o.pace != "realtime") {
        simArgs.insert(simArgs.end(), {"--clock", rt + "/source_clock"});
    }
    if (!sim.start(simBin, simArgs, {}, {}, rt, logs + "/camera_sim.out", logs + "/camera_sim.err")) {
        fprintf(stderr, "facedet_replay: cannot start camera_sim\n");
        remove_tree(rt);
        return 1;
    }
    for (int i = 0; i < 250 && !exists(rt + "/featureCamera_addr.socket") && !sim.poll(); ++i) {
        sleep_ms(20);
    }

    std::map<std::string, std::string> env = {{"FACEDET_RUNTIME_DIR", rt},
                                              {"FACEDET_SHM_KEY", shmKey},
                                              {"FACEDET_SOURCE", run.source},
                                              {"FACEDET_PACE", run.pace},
                                              {"FACEDET_FRAME_LOG", frameLogPath}};
    std::vector<std::string> unset = {"FACEDET_LOOP", "FACEDET_EXIT_AT_END", "FACEDET_FAULTS",
                                      "FACEDET_FRAME_COST_MS"};
    if (o.frameCostMs > 0) {
        char cost[32];
        snprintf(cost, sizeof cost, "%g", o.frameCostMs);
        env["FACEDET_FRAME_COST_MS"] = cost;
    }
    if (!o.engine.empty()) {
        env["FACEDET_ENGINE"] = o.engine;
    }
    if (o.seconds > 0) {
        env["FACEDET_LOOP"] = "1";
    } else {
        env["FACEDET_EXIT_AT_END"] = "1";
    }
    const bool daemonStarted = daemon.start(daemonBin, {}, env, unset, rt, daemonOut, daemonErr);

    // How long the daemon may take: start-up, the clip at its own rate, and
    // room for slow (sanitizer) builds in lockstep.
    const double clipSeconds = info.frames > 0 ? static_cast<double>(info.frames) / info.fps : 600;
    const double limit = o.timeout > 0 ? o.timeout : (o.seconds > 0 ? o.seconds : 5 * clipSeconds) + 60;

    bool runSent = false, gammaStarted = false, killedForTime = false, interrupted = false, hung = false;
    bool cannotOpen = false;
    double runAt = 0;
    while (daemonStarted && !daemon.poll()) {
        const double t = now_s() - started;
        if (s_interrupted) {
            interrupted = true;
            break;
        }
        if (t > limit) {
            killedForTime = true;
            break;
        }
        if (!runSent && exists(rt + "/sin_addr.socket")) {
            Child ctl;
            if (ctl.start(ctlBin, {"--runtime-dir", rt, "run"}, {}, {}, rt, logs + "/facedet_ctl.out",
                          logs + "/facedet_ctl.err") &&
                ctl.wait(10) && ctl.status() == 0) {
                runSent = true;
                runAt = now_s();
            }
        }
        if (o.gamma && !gammaStarted && is_executable(gammaBin) &&
            read_text(frameLogPath).find("taken") != std::string::npos) {
            // The daemon creates the segment when its frame thread starts.
            gammaStarted = gamma.start(gammaBin, {"--every", "30", "--csv", logs + "/gamma.csv"},
                                       {{"FACEDET_SHM_KEY", shmKey}, {"FACEDET_RUNTIME_DIR", rt}}, {}, rt,
                                       gammaOut, logs + "/gamma_peer.err");
            run.gammaStatus = gammaStarted ? "ran" : "gamma_peer could not start";
        }
        if (!cannotOpen && read_text(daemonErr).find("host platform: cannot open") != std::string::npos) {
            cannotOpen = true;  // the daemon ends by itself; its line goes into the report
        }
        if (o.seconds > 0 && runSent && now_s() - runAt >= o.seconds) {
            break;
        }
        sleep_ms(50);
    }

    // Shut down in order: the daemon, then the camera, then the tuning peer.
    bool daemonEnded = daemon.poll();
    if (daemonStarted && !daemonEnded) {
        if (!daemon.stop(15)) {
            hung = true;
        }
    }
    sim.stop(5);
    if (gammaStarted) {
        gamma.stop(5);
    }
    remove_tree(rt);
    // The daemon leaves its segment behind, as on the camera; ours is private to this run.
    if (const int shmId = shmget(static_cast<key_t>(std::stol(shmKey)), 0, 0); shmId >= 0) {
        shmctl(shmId, IPC_RMID, nullptr);
    }
    run.daemonExit = daemon.status();
    run.wallSeconds = now_s() - started;

    // Read what was logged, whatever happened.
    const std::string err = read_text(daemonErr);
    const replay::DaemonLog dlog = replay::parse_daemon_log(read_text(daemonOut), err);
    const std::vector<replay::FrameLogEntry> frames = replay::parse_frame_log(read_text(frameLogPath));
    const replay::SimLog slog = replay::parse_sim_log(read_text(simLogPath));
    std::vector<replay::GammaAnswer> answers;
    if (gammaStarted) {
        answers = replay::parse_gamma_output(read_text(gammaOut));
    }

    if (!daemonStarted) {
        run.reason = "the daemon could not be started";
    } else if (dlog.cannotOpenSource || cannotOpen) {
        run.reason = "the daemon cannot open the source";
        const size_t at = err.find("host platform: cannot open");
        run.notes.push_back(err.substr(at, err.find('\n', at) - at));
    } else if (interrupted) {
        run.reason = "interrupted after " + fmt_seconds(run.wallSeconds) + " s";
    } else if (killedForTime) {
        run.reason = std::string(hung ? "daemon killed after " : "daemon stopped after ") +
                     fmt_seconds(limit) + " s (time-out)";
    } else if (hung) {
        run.reason = "daemon killed: it did not end within 15 s of SIGTERM";
    } else if (o.seconds == 0 && daemonEnded && run.daemonExit != 0) {
        run.reason =
            "the daemon ended with status " + std::to_string(run.daemonExit) + " before the clip's end";
    } else if (o.seconds > 0 && daemonEnded) {
        run.reason = "the daemon ended by itself (status " + std::to_string(run.daemonExit) + ") before " +
                     fmt_seconds(o.seconds) + " s";
    } else if (!runSent) {
        run.reason = "auto framing was never switched on (facedet_ctl run failed)";
    } else {
        run.complete = true;
        run.reason = o.seconds > 0 ? "played for " + fmt_seconds(o.seconds) + " s" : "clip played to the end";
    }
    if (dlog.cutAtEnd) {
        run.notes.push_back("the daemon's log ends in a cut line");
    }
    if (sim.status() != 0) {
        run.notes.push_back("camera_sim ended with status " + std::to_string(sim.status()));
    }
    if (gammaStarted && gamma.status() != 0) {
        run.notes.push_back("gamma_peer ended with status " + std::to_string(gamma.status()));
    }

    // Render to temporary names and move each into place when whole.
    const replay::VideoResult video =
        replay::render_video(run.source, frames, dlog, slog, info.fps, out + "/.replay.tmp.mp4");
    bool haveVideo = video.ok && publish(out + "/.replay.tmp.mp4", out + "/replay.mp4", run);
    if (!video.ok) {
        unlink((out + "/.replay.tmp.mp4").c_str());
        run.notes.push_back("no video: " + video.error);
    }
    replay::FramingScore score;
    if (!truthPath.empty()) {
        std::vector<replay::ScoreFrame> scoreFrames;
        std::vector<replay::ScoreMove> scoreMoves;
        replay::score_inputs(dlog, frames, slog, &scoreFrames, &scoreMoves);
        score = replay::score_framing(truth, scoreFrames, scoreMoves, info.frames);
    }
    std::string timelineError;
    const bool haveTimeline =
        replay::render_timeline(frames, dlog, slog, truthPath.empty() ? nullptr : &score,
                                out + "/.timeline.tmp.png", &timelineError) &&
        publish(out + "/.timeline.tmp.png", out + "/timeline.png", run);
    if (!haveTimeline) {
        run.notes.push_back("no timeline: " + timelineError);
    }
    if (run.complete && !haveVideo) {
        run.complete = false;
        run.reason = "the video could not be written";
    }
    replay::Summary summary = replay::summarise(run, dlog, frames, slog, answers);
    summary.truthFile = truthPath;
    summary.truth = score;
    if (!write_text(out + "/.summary.json.tmp", replay::summary_json(summary)) ||
        !write_text(out + "/.report.html.tmp", replay::report_html(summary, haveVideo, haveTimeline))) {
        fprintf(stderr, "facedet_replay: cannot write the report into '%s'\n", out.c_str());
        return 1;
    }
    publish(out + "/.summary.json.tmp", out + "/summary.json", run);
    publish(out + "/.report.html.tmp", out + "/report.html", run);

    printf("facedet_replay: %s: %s\n", run.complete ? "complete" : "incomplete", run.reason.c_str());
    printf("  face detector: %s\n",
           summary.engine.empty() ? "none reported" : (summary.engine + " engine, " + summary.model).c_str());
    printf("  pace: %s", run.pace.c_str());
    if (summary.frameCostMs >= 0) {
        printf(", %.1f ms of the camera's time per analysed frame", summary.frameCostMs);
    }
    if (summary.analysedFps >= 0) {
        printf(", %.2f analysed frames per second", summary.analysedFps);
    }
    printf("\n");
    printf("  frames delivered %d, taken %d, dropped %d, analysed %d; faces mean %.2f max %d; moves %d\n",
           summary.delivered, summary.taken, summary.dropped, summary.analysed, summary.facesMean,
           summary.facesMax, summary.moves);
    if (summary.framingFrames > 0 && summary.framesWithFaces == 0) {
        printf("  no face was found in any analysed frame\n");
    }
    printf("  report: %s/report.html\n", out.c_str());
    return run.complete ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    Options o;
    if (int status = parse_options(argc, argv, &o); status != 0) {
        return status < 0 ? 0 : status;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_handler = on_signal;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    try {
        return run_replay(o);
    } catch (const std::exception &e) {
        fprintf(stderr, "facedet_replay: %s\n", e.what());
    } catch (...) {
        fprintf(stderr, "facedet_replay: unexpected error\n");
    }
    return 1;
}
