// The second step of a replay: a private runtime folder and shared-memory
// key, camera_sim on its socket, then the daemon on the source.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <stdexcept>

#include "replay_steps.h"

namespace fs = std::filesystem;

namespace replay {

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

int launch(const Options &o, Probe &p, Launch *l) {
    // Under /tmp whatever TMPDIR says: the socket paths in it must stay short.
    char runtimeDir[] = "/tmp/facedet_replay.XXXXXX";
    if (mkdtemp(runtimeDir) == nullptr) {
        fprintf(stderr, "facedet_replay: cannot create a runtime folder: %s\n", strerror(errno));
        return 2;
    }
    l->runtimeDir = runtimeDir;
    std::error_code error;
    const std::string &rt = l->runtimeDir;
    // The daemon loads its model from its working directory, as on the camera.
    for (const char *model : {"slim-320-quant-ADMM-50.mnn", "slim-320.onnx"}) {
        fs::create_symlink(fs::path(FACEDET_SHARED_DIR) / "models" / model, fs::path(rt) / model, error);
        if (error) {
            p.run.notes.push_back(std::string("cannot link the model ") + model);
        }
    }

    l->frameLog = p.logs + "/frames.log";
    l->simLog = p.logs + "/camera_sim.jsonl";
    l->daemonOut = p.logs + "/daemon.out";
    l->daemonErr = p.logs + "/daemon.err";
    l->gammaOut = p.logs + "/gamma_peer.out";
    l->shmKey = std::to_string(0x52500000 + (getpid() & 0xfffff));

    l->started = Clock::now();
    const SourceInfo &info = p.source;
    printf("facedet_replay: %s (%s, %.2f fps%s), %s\n", p.run.source.c_str(), info.kind.c_str(), info.fps,
           info.frames > 0 ? (", " + std::to_string(info.frames) + " frames").c_str() : "",
           p.run.pace.c_str());
    // Lockstep and camera pace: the camera moves on the source time the platform publishes.
    ChildProcess::Options sim{{"--runtime-dir", rt, "--log", l->simLog},
                              {},
                              {},
                              rt,
                              p.logs + "/camera_sim.out",
                              p.logs + "/camera_sim.err"};
    if (o.pace != "realtime") {
        sim.args.insert(sim.args.end(), {"--clock", rt + "/source_clock"});
    }
    try {
        l->sim = std::make_unique<ChildProcess>(p.simBin, sim);
    } catch (const std::runtime_error &) {
        fprintf(stderr, "facedet_replay: cannot start camera_sim\n");
        fs::remove_all(rt, error);
        return 1;
    }
    eventually([&] { return fs::exists(rt + "/featureCamera_addr.socket") || l->sim->poll(); },
               std::chrono::seconds(5));

    ChildProcess::Options daemon{{}, {}, {}, rt, l->daemonOut, l->daemonErr};
    daemon.env = {{"FACEDET_RUNTIME_DIR", rt},
                  {"FACEDET_SHM_KEY", l->shmKey},
                  {"FACEDET_SOURCE", p.run.source},
                  {"FACEDET_PACE", p.run.pace},
                  {"FACEDET_FRAME_LOG", l->frameLog}};
    daemon.unsetEnv = {"FACEDET_LOOP", "FACEDET_EXIT_AT_END", "FACEDET_FAULTS", "FACEDET_FRAME_COST_MS"};
    if (o.frameCostMs > 0) {
        char cost[32];
        snprintf(cost, sizeof cost, "%g", o.frameCostMs);
        daemon.env["FACEDET_FRAME_COST_MS"] = cost;
    }
    if (!o.engine.empty()) {
        daemon.env["FACEDET_ENGINE"] = o.engine;
    }
    daemon.env[o.seconds > 0 ? "FACEDET_LOOP" : "FACEDET_EXIT_AT_END"] = "1";
    try {
        l->daemon = std::make_unique<ChildProcess>(p.daemonBin, daemon);
    } catch (const std::runtime_error &) {
        l->daemon.reset();  // judged as "could not be started"
    }
    return 0;
}

}  // namespace replay
