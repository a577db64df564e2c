/*
 * camera_sim: the camera's control process on a PC. It owns the feature-camera
 * socket, answers the daemon's VISCA packets as the camera would, and moves a
 * virtual pan-tilt-zoom head in real time, logging both as JSON lines. With
 * --clock it moves on the time a lockstep host platform publishes instead, so
 * that the head moves as far between two frames as it would at the video's pace.
 */
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "dbgout/runtime_env.h"
#include "json_number.h"
#include "sim_protocol.h"
#include "sim_ptz.h"
#include "source_clock.h"
#include "tool_cli.h"

namespace {

constexpr int64_t kSampleMicros = 20000;  // state samples while moving

int64_t now_us() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

// The wall clock, or the source time a lockstep or camera-paced host
// platform publishes (0 until the daemon has made its file).
class SimClock {
  public:
    explicit SimClock(const std::string &path) {
        if (!path.empty()) {
            source_ = std::make_unique<host::ClockFileReader>(path);
        }
    }
    bool following() const { return source_ != nullptr; }
    int64_t now_us() { return source_ ? static_cast<int64_t>(source_->now_us()) : ::now_us(); }

  private:
    std::unique_ptr<host::ClockFileReader> source_;
};

struct Options {
    std::string runtimeDir;
    std::string logPath;
    double seconds = 0;
    std::string clockPath;
};

// -1 to run, else the exit status.
int parse_options(int argc, char **argv, Options *options) {
    options->runtimeDir = runtime_dir();
    CLI::App app{
        "Answers VISCA packets on DIR/featureCamera_addr.socket as the camera's\n"
        "control process and moves a virtual pan-tilt-zoom head.",
        "camera_sim"};
    tool_cli::set_up(app, "camera_sim [--runtime-dir DIR] [--log FILE] [--seconds S] [--clock FILE]");
    app.add_option("--runtime-dir", options->runtimeDir,
                   "socket folder (default $FACEDET_RUNTIME_DIR, else /dev)")
        ->type_name("DIR");
    app.add_option("--log", options->logPath, "JSON lines: every packet and the head's state over time")
        ->type_name("FILE");
    app.add_option("--seconds", options->seconds, "stop after S seconds (default: until SIGINT or SIGTERM)")
        ->type_name("S")
        ->check(tool_cli::positive_number("a positive number"));
    app.add_option("--clock", options->clockPath,
                   "move and log on the source time a lockstep host platform\n"
                   "publishes in FILE (its runtime dir's source_clock), not the wall clock")
        ->type_name("FILE");
    return tool_cli::parse(app, argc, argv);
}

class Simulator {
  public:
    Simulator(int fd, FILE *log, SimClock *clock) : fd_(fd), log_(log), clock_(clock) {
        lastAdvance_ = now();
        tickTime_ = lastAdvance_;
    }

    // The simulation's time: the wall clock, or the followed source time.
    int64_t now() const { return clock_->now_us(); }

    void log_line(const nlohmann::ordered_json &line) {
        if (log_) {
            // Text that is not UTF-8 (a strange socket path) is replaced, not refused.
            fprintf(log_, "%s\n",
                    line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
            fflush(log_);
        }
    }

    nlohmann::ordered_json stamp(const char *event) const { return {{"t_us", tickTime_}, {"event", event}}; }

    void sample() {
        // One decimal, as the log has always had.
        nlohmann::ordered_json line = stamp("state");
        line["pan"] = printf_rounded(ptz_.pan().position, 1);
        line["tilt"] = printf_rounded(ptz_.tilt().position, 1);
        line["width"] = printf_rounded(ptz_.zoom().position, 1);
        line["height"] = printf_rounded(ptz_.zoom().position * 9 / 16, 1);
        line["target_pan"] = printf_rounded(ptz_.pan().target, 1);
        line["target_tilt"] = printf_rounded(ptz_.tilt().target, 1);
        line["target_width"] = printf_rounded(ptz_.zoom().target, 1);
        line["moving"] = ptz_.moving();
        log_line(line);
        lastSample_ = tickTime_;
    }

    void send_reply(const Bytes &reply, const sockaddr_un &to, socklen_t toLength) {
        nlohmann::ordered_json line = stamp("tx");
        line["bytes"] = hex_bytes(reply.data(), reply.size());
        if (toLength <= sizeof(sa_family_t)) {
            // An unnamed sender cannot be answered.
            line["sent"] = false;
            line["error"] = "sender has no address";
        } else if (sendto(fd_, reply.data(), reply.size(), MSG_DONTWAIT,
                          reinterpret_cast<const sockaddr *>(&to), toLength) < 0) {
            line["sent"] = false;
            line["error"] = strerror(errno);
        } else {
            line["sent"] = true;
        }
        log_line(line);
    }

    void handle(const uint8_t *packet, int length, const sockaddr_un &from, socklen_t fromLength) {
        nlohmann::ordered_json line = stamp("rx");
        line["len"] = length;
        line["bytes"] = hex_bytes(packet, length);
        SimCommand command;
        const char *reason = "";
        if (!parse_sim_command(packet, length, &command, &reason)) {
            line["error"] = reason;
            log_line(line);
            send_reply(reply_syntax_error(), from, fromLength);
            return;
        }
        line["command"] = command.id;
        line["name"] = command.name;
        log_line(line);
        if (command.inquiry) {
            send_reply(ptz_.inquiry_reply(command), from, fromLength);
            return;
        }
        send_reply(reply_ack(), from, fromLength);
        const bool changed = ptz_.apply(command);
        // The camera reports completion once it has taken the command, not when
        // a motion ends: the daemon never waits for the end of a move.
        send_reply(reply_completion(), from, fromLength);
        if (changed) {
            sample();
        }
    }

    // Receives everything waiting on the socket.
    void drain() {
        uint8_t packet[512];
        for (;;) {
            sockaddr_un from;
            memset(&from, 0, sizeof from);
            socklen_t fromLength = sizeof from;
            ssize_t n = recvfrom(fd_, packet, sizeof packet, MSG_DONTWAIT,
                                 reinterpret_cast<sockaddr *>(&from), &fromLength);
            if (n < 0) {
                return;
            }
            handle(packet, static_cast<int>(n), from, fromLength);
        }
    }

    // Moves the head to the present; samples while it moves and once when it stops.
    void tick() {
        const int64_t t = now();
        const bool wasMoving = ptz_.moving();
        // A followed clock restarts at 0 when a new run recreates its file.
        ptz_.advance(static_cast<double>(std::max<int64_t>(t - lastAdvance_, 0)) / 1e6);
        lastAdvance_ = t;
        tickTime_ = t;
        if (wasMoving && (!ptz_.moving() || t - lastSample_ >= kSampleMicros)) {
            sample();
        }
    }

    int wait_ms() const {
        if (!ptz_.moving()) {
            return 100;
        }
        if (clock_->following()) {
            return 5;  // the followed clock gives no signal when it moves
        }
        const int64_t left = kSampleMicros - (now() - lastSample_);
        return left > 0 ? static_cast<int>((left + 999) / 1000) : 0;
    }

  private:
    int fd_;
    FILE *log_;
    SimClock *clock_;
    SimPtz ptz_;
    int64_t lastAdvance_ = 0;
    // Every line of one wake-up carries the time the head was moved to, so
    // packets that arrived together are dated together.
    int64_t tickTime_ = 0;
    int64_t lastSample_ = 0;
};

}  // namespace

int main(int argc, char **argv) {
    Options options;
    if (const int status = parse_options(argc, argv, &options); status >= 0) {
        return status;
    }

    const std::string path = options.runtimeDir + "/featureCamera_addr.socket";
    sockaddr_un address;
    memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        fprintf(stderr, "camera_sim: socket path too long: %s\n", path.c_str());
        return 1;
    }
    memcpy(address.sun_path, path.c_str(), path.size() + 1);

    FILE *log = nullptr;
    if (!options.logPath.empty()) {
        log = fopen(options.logPath.c_str(), "w");
        if (log == nullptr) {
            fprintf(stderr, "camera_sim: cannot write %s: %s\n", options.logPath.c_str(), strerror(errno));
            return 1;
        }
    }

    int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    unlink(path.c_str());  // a socket left by an earlier run
    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) < 0) {
        fprintf(stderr, "camera_sim: cannot bind %s: %s\n", path.c_str(), strerror(errno));
        return 1;
    }

    tool_cli::stop_on_signals();

    SimClock clock(options.clockPath);
    Simulator sim(fd, log, &clock);
    nlohmann::ordered_json start = sim.stamp("start");
    start["socket"] = path;
    sim.log_line(start);
    sim.sample();
    printf("camera_sim: listening on %s\n", path.c_str());
    fflush(stdout);

    const int64_t end = options.seconds > 0 ? now_us() + static_cast<int64_t>(options.seconds * 1e6) : 0;
    const char *reason = "signal";
    while (!tool_cli::stop_requested()) {
        if (end != 0 && now_us() >= end) {
            reason = "time limit";
            break;
        }
        struct pollfd waiting = {fd, POLLIN, 0};
        int ready = poll(&waiting, 1, sim.wait_ms());
        sim.tick();
        if (ready > 0) {
            sim.drain();
        }
    }

    nlohmann::ordered_json stop = sim.stamp("stop");
    stop["reason"] = reason;
    sim.log_line(stop);
    close(fd);
    unlink(path.c_str());
    if (log) {
        fclose(log);
    }
    printf("camera_sim: stopped (%s)\n", reason);
    return 0;
}
