#include "live_session.h"

#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
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
    std::string pattern = (tmp != nullptr && *tmp != '\0' && strlen(tmp) <= 48 ? std::string(tmp) : "/tmp") +
                          "/facedet_live.XXXXXX";
    std::vector<char> runtimeDir(pattern.begin(), pattern.end());
    runtimeDir.push_back('\0');
    if (mkdtemp(runtimeDir.data()) == nullptr) {
        *error = std::string("cannot create a runtime folder: ") + std::strerror(errno);
        return false;
    }
    runtimeDir_ = runtimeDir.data();
    // A key of our own: a camera process's segment is never touched.
    shmKey_ = std::to_string(0x4c560000 + (getpid() & 0xffff));
    std::error_code ignored;
    for (const char *model : {"slim-320-quant-ADMM-50.mnn", "slim-320.onnx"}) {
        fs::create_symlink(fs::path(FACEDET_SHARED_DIR) / "models" / model, fs::path(runtimeDir_) / model,
                           ignored);
    }
    try {
        sim_ = std::make_unique<ChildProcess>(
            o.simBin, ChildProcess::Options{{"--runtime-dir", runtimeDir_, "--log", path("camera_sim.jsonl")},
                                            {},
                                            {},
                                            runtimeDir_,
                                            path("camera_sim.out"),
                                            path("camera_sim.err")});
        eventually([&] { return fs::exists(path("featureCamera_addr.socket")) || sim_->poll(); },
                   std::chrono::seconds(5));

        char cost[32];
        snprintf(cost, sizeof cost, "%g", o.frameCostMs);
        ChildProcess::Options daemon{{}, {}, {}, runtimeDir_, path("daemon.out"), path("daemon.err")};
        daemon.env = {{"FACEDET_RUNTIME_DIR", runtimeDir_},
                      {"FACEDET_SHM_KEY", shmKey_},
                      {"FACEDET_SOURCE", o.source},
                      {"FACEDET_PACE", "realtime"},
                      {"FACEDET_FRAME_COST_MS", cost},
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
                                      {{"FACEDET_SHM_KEY", shmKey_}, {"FACEDET_RUNTIME_DIR", runtimeDir_}},
                                      {},
                                      runtimeDir_,
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
    for (auto *child : {&daemon_, &sim_, &gamma_}) {
        if (*child) {
            (*child)->stop(kStopGrace);
        }
    }
    if (!shmKey_.empty()) {
        // The daemon leaves its segment behind, as on the camera; ours is private.
        if (const int id = shmget(static_cast<key_t>(std::stol(shmKey_)), 0, 0); id >= 0) {
            shmctl(id, IPC_RMID, nullptr);
        }
        shmKey_.clear();
    }
    if (!runtimeDir_.empty()) {
        std::error_code ignored;
        fs::remove_all(runtimeDir_, ignored);
        runtimeDir_.clear();
    }
}

}  // namespace live
