// The second step of a replay: a private runtime folder and shared-memory
// key, camera_sim on its socket, then the daemon on the source.
#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "replay_steps.h"

namespace fs = std::filesystem;

namespace replay {

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

int launch(const Options &o, Probe &p, Launch *l) {
    // Under /tmp whatever TMPDIR says: the socket paths in it must stay short.
    std::string error;
    std::vector<std::string> unlinkedModels;
    if (!make_run_folder("/tmp/facedet_replay.XXXXXX", 0x52500000, 0xfffff, &l->folder, &unlinkedModels,
                         &error)) {
        fprintf(stderr, "facedet_replay: %s\n", error.c_str());
        return 2;
    }
    for (const std::string &model : unlinkedModels) {
        p.run.notes.push_back("cannot link the model " + model);
    }
    const std::string &rt = l->folder.dir;

    l->frameLog = p.logs + "/frames.log";
    l->simLog = p.logs + "/camera_sim.jsonl";
    l->daemonOut = p.logs + "/daemon.out";
    l->daemonErr = p.logs + "/daemon.err";
    l->gammaOut = p.logs + "/gamma_peer.out";

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
        remove_run_folder(&l->folder);
        return 1;
    }
    eventually([&] { return fs::exists(rt + "/featureCamera_addr.socket") || l->sim->poll(); },
               std::chrono::seconds(5));

    ChildProcess::Options daemon{{}, {}, {}, rt, l->daemonOut, l->daemonErr};
    daemon.env = {{"FACEDET_RUNTIME_DIR", rt},
                  {"FACEDET_SHM_KEY", l->folder.shmKey},
                  {"FACEDET_SOURCE", p.run.source},
                  {"FACEDET_PACE", p.run.pace},
                  {"FACEDET_FRAME_LOG", l->frameLog}};
    daemon.unsetEnv = {"FACEDET_LOOP", "FACEDET_EXIT_AT_END", "FACEDET_FAULTS", "FACEDET_FRAME_COST_MS"};
    if (o.frameCostMs > 0) {
        daemon.env["FACEDET_FRAME_COST_MS"] = frame_cost_text(o.frameCostMs);
    }
    if (!o.engine.empty()) {
        daemon.env["FACEDET_ENGINE"] = o.engine;
    }
    daemon.env[o.seconds > 0 ? "FACEDET_LOOP" : "FACEDET_EXIT_AT_END"] = "1";
    try {
        l->daemon = std::make_unique<ChildProcess>(p.daemonBin, daemon);
    } catch (const std::runtime_error &) {
        // Left empty: judged as "could not be started".
    }
    return 0;
}

}  // namespace replay
