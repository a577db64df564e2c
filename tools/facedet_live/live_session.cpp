#include "live_session.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <vector>

namespace fs = std::filesystem;

namespace live {
namespace {

// A whole stop of the daemon: its frame wait looks at the exit flag every
// 100 ms, and the camera's hold of the last frame adds at most its cost.
constexpr std::chrono::milliseconds kStopGrace{2500};

}  // namespace

bool is_device(const std::string &source) {
    return source.rfind("/dev/", 0) == 0;
}

LiveSession::~LiveSession() {
    stop();
}

bool LiveSession::start(const SessionOptions &o, std::string *error) {
    // In TMPDIR when its path is short, else /tmp: socket paths must stay short.
    const char *tmp = getenv("TMPDIR");
    const std::string base = tmp != nullptr && *tmp != '\0' && strlen(tmp) <= 48 ? tmp : "/tmp";
    std::vector<std::string> unlinkedModels;  // the daemon's own line names a missing model
    if (!make_run_folder(base + "/facedet_live.XXXXXX", 0x4c560000, 0xffff, &folder_, &unlinkedModels,
                         error)) {
        return false;
    }
    const std::string &runtimeDir = folder_.dir;
    const std::string &shmKey = folder_.shmKey;
    try {
        sim_ = std::make_unique<ChildProcess>(
            o.simBin, ChildProcess::Options{{"--runtime-dir", runtimeDir, "--log", path("camera_sim.jsonl")},
                                            {},
                                            {},
                                            runtimeDir,
                                            path("camera_sim.out"),
                                            path("camera_sim.err")});
        eventually([&] { return fs::exists(path("featureCamera_addr.socket")) || sim_->poll(); },
                   std::chrono::seconds(5));

        ChildProcess::Options daemon{{}, {}, {}, runtimeDir, path("daemon.out"), path("daemon.err")};
        daemon.env = {{"FACEDET_RUNTIME_DIR", runtimeDir},
                      {"FACEDET_SHM_KEY", shmKey},
                      {"FACEDET_SOURCE", o.source},
                      {"FACEDET_PACE", "realtime"},
                      {"FACEDET_FRAME_COST_MS", frame_cost_text(o.frameCostMs)},
                      {"FACEDET_FRAME_LOG", path("frames.log")},
                      {"FACEDET_FRAME_TAP", path("frame_tap")}};
        daemon.unsetEnv = {"FACEDET_LOOP", "FACEDET_EXIT_AT_END", "FACEDET_FAULTS"};
        if (!o.once && !is_device(o.source)) {
            daemon.env["FACEDET_LOOP"] = "1";
        }
        if (!o.engine.empty()) {
            daemon.env["FACEDET_ENGINE"] = o.engine;
        }
        daemon_ = std::make_unique<ChildProcess>(o.daemonBin, daemon);
        // The command comes while the frame thread sleeps its first two
        // seconds, so auto framing runs from the first analysed frame.
        eventually([&] { return send_command("run") || daemon_->poll(); }, std::chrono::seconds(5));
        if (o.gamma) {
            // It waits for the daemon to make the segment.
            gamma_ = std::make_unique<ChildProcess>(
                o.gammaBin,
                ChildProcess::Options{{"--every", "30"},
                                      {{"FACEDET_SHM_KEY", shmKey}, {"FACEDET_RUNTIME_DIR", runtimeDir}},
                                      {},
                                      runtimeDir,
                                      path("gamma_peer.out"),
                                      path("gamma_peer.err")});
        }
    } catch (const std::runtime_error &e) {
        *error = e.what();
        stop();
        return false;
    }
    return true;
}

bool LiveSession::send_command(const std::string &command) const {
    const uint8_t bytes[2] = {1, static_cast<uint8_t>(command == "run" ? 1 : command == "off" ? 2 : 0)};
    sockaddr_un to;
    std::memset(&to, 0, sizeof to);
    to.sun_family = AF_UNIX;
    const std::string socketPath = path("sin_addr.socket");
    if (socketPath.size() >= sizeof to.sun_path) {
        return false;
    }
    std::memcpy(to.sun_path, socketPath.c_str(), socketPath.size());
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return false;
    }
    const bool sent = ::sendto(fd, bytes, sizeof bytes, MSG_DONTWAIT, reinterpret_cast<const sockaddr *>(&to),
                               sizeof to) == static_cast<ssize_t>(sizeof bytes);
    ::close(fd);
    return sent;
}

void LiveSession::stop() {
    // All at once, so that their stops overlap: the daemon takes the longest.
    for (const auto *child : {&daemon_, &sim_, &gamma_}) {
        if (*child) {
            (*child)->signal(SIGTERM);
        }
    }
    // One grace for them all, so that a stop takes no longer than the daemon's.
    const auto until = std::chrono::steady_clock::now() + kStopGrace;
    for (auto *child : {&daemon_, &sim_, &gamma_}) {
        if (*child) {
            (*child)->stop(
                std::max(std::chrono::milliseconds(0), std::chrono::duration_cast<std::chrono::milliseconds>(
                                                           until - std::chrono::steady_clock::now())));
        }
    }
    remove_run_folder(&folder_);
}

}  // namespace live
