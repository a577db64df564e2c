#include "session.h"

#include <csignal>
#include <filesystem>
#include <stdexcept>

#include "control.h"

namespace fs = std::filesystem;

Session::~Session() {
    stop();
}

Session::Start Session::start(const SessionOptions &o, std::string *error, std::vector<std::string> *notes) {
    options_ = o;
    std::vector<std::string> unlinkedModels;
    if (!make_run_folder(o.place.folderPattern, o.place.keyBase, o.place.keyMask, &folder_, &unlinkedModels,
                         error)) {
        return Start::NoFolder;
    }
    stopped_ = false;
    for (const std::string &model : unlinkedModels) {
        if (notes != nullptr) {
            notes->push_back("cannot link the model " + model);
        }
    }
    logDir_ = o.logDir.empty() ? folder_.dir : o.logDir;
    const std::string &rt = folder_.dir;

    ChildProcess::Options sim{{"--runtime-dir", rt, "--log", log("camera_sim.jsonl")},
                              {},
                              {},
                              rt,
                              log("camera_sim.out"),
                              log("camera_sim.err")};
    if (o.simFollowsSourceClock) {
        sim.args.insert(sim.args.end(), {"--clock", path("source_clock")});
    }
    try {
        sim_ = std::make_unique<ChildProcess>(o.programs.sim, sim);
    } catch (const std::runtime_error &) {
        *error = "cannot start camera_sim";
        remove_run_folder(&folder_);
        return Start::NoCamera;
    }
    eventually([&] { return fs::exists(path("featureCamera_addr.socket")) || sim_->poll(); },
               std::chrono::seconds(5));

    ChildProcess::Options daemon{{}, {}, {}, rt, log("daemon.out"), log("daemon.err")};
    daemon.env = {{"FACEDET_RUNTIME_DIR", rt},
                  {"FACEDET_SHM_KEY", folder_.shmKey},
                  {"FACEDET_SOURCE", o.source},
                  {"FACEDET_PACE", o.pace},
                  {"FACEDET_FRAME_LOG", log("frames.log")}};
    // Only what this run asks for: nothing of the caller's own settings.
    daemon.unsetEnv = {
        "FACEDET_LOOP",      "FACEDET_EXIT_AT_END", "FACEDET_FAULTS",          "FACEDET_FRAME_COST_MS",
        "FACEDET_FRAME_TAP", "FACEDET_RECORD",      "FACEDET_DELIVERED_FRAMES"};
    if (o.frameCostMs > 0) {
        daemon.env["FACEDET_FRAME_COST_MS"] = frame_cost_text(o.frameCostMs);
    }
    if (!o.engine.empty()) {
        daemon.env["FACEDET_ENGINE"] = o.engine;
    }
    if (o.loop) {
        daemon.env["FACEDET_LOOP"] = "1";
    }
    if (o.exitAtEnd) {
        daemon.env["FACEDET_EXIT_AT_END"] = "1";
    }
    if (o.frameTap) {
        daemon.env["FACEDET_FRAME_TAP"] = path("frame_tap");
    }
    for (const auto &[name, value] : o.daemonEnv) {
        daemon.env[name] = value;
    }
    std::string program = o.programs.daemon;
    if (!o.daemonWrapper.empty()) {
        program = o.daemonWrapper.front();
        daemon.args.assign(o.daemonWrapper.begin() + 1, o.daemonWrapper.end());
        daemon.args.push_back(o.programs.daemon);
    }
    try {
        daemon_ = std::make_unique<ChildProcess>(program, daemon);
    } catch (const std::runtime_error &e) {
        *error = std::string("cannot start faceDet: ") + e.what();
        return Start::NoDaemon;
    }
    return Start::Ok;
}

bool Session::send_control(const std::string &command) const {
    uint8_t bytes[2];
    return !folder_.dir.empty() && control_bytes(command, bytes) && ::send_control(folder_.dir, bytes);
}

bool Session::start_gamma_peer(const std::vector<std::string> &args) {
    try {
        gamma_ = std::make_unique<ChildProcess>(
            options_.programs.gamma,
            ChildProcess::Options{args,
                                  {{"FACEDET_SHM_KEY", folder_.shmKey}, {"FACEDET_RUNTIME_DIR", folder_.dir}},
                                  {},
                                  folder_.dir,
                                  log("gamma_peer.out"),
                                  log("gamma_peer.err")});
    } catch (const std::runtime_error &) {
        return false;
    }
    return true;
}

bool Session::stop(std::chrono::milliseconds daemonGrace, std::chrono::milliseconds peerGrace) {
    if (stopped_) {
        return true;
    }
    stopped_ = true;
    const bool daemonEnded = !daemon_ || daemon_->poll() || daemon_->stop(daemonGrace);
    // Both at once, so that their stops overlap.
    for (const auto *peer : {&sim_, &gamma_}) {
        if (*peer && !(*peer)->poll()) {
            (*peer)->signal(SIGTERM);
        }
    }
    const auto until = std::chrono::steady_clock::now() + peerGrace;
    for (auto *peer : {&sim_, &gamma_}) {
        if (*peer) {
            (*peer)->stop(
                std::max(std::chrono::milliseconds(0), std::chrono::duration_cast<std::chrono::milliseconds>(
                                                           until - std::chrono::steady_clock::now())));
        }
    }
    remove_run_folder(&folder_);
    return daemonEnded;
}
