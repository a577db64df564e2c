// The second step of a replay: a private runtime folder and shared-memory
// key, camera_sim on its socket, then the daemon on the source.
#include <cstdio>

#include "replay_steps.h"

namespace replay {

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

int launch(const Options &o, Probe &p, Launch *l) {
    l->started = Clock::now();
    const SourceInfo &info = p.source;
    printf("facedet_replay: %s (%s, %.2f fps%s), %s\n", p.run.source.c_str(), info.kind.c_str(), info.fps,
           info.frames > 0 ? (", " + std::to_string(info.frames) + " frames").c_str() : "",
           p.run.pace.c_str());
    SessionOptions so;
    // Under /tmp whatever TMPDIR says: the socket paths in it must stay short.
    so.place = {"/tmp/facedet_replay.XXXXXX", 0x52500000, 0xfffff};
    so.programs = p.programs;
    so.logDir = p.logs;
    so.source = p.run.source;
    so.pace = p.run.pace;
    so.frameCostMs = o.frameCostMs;
    so.engine = o.engine;
    so.loop = o.seconds > 0;
    so.exitAtEnd = o.seconds == 0;
    // Lockstep and camera pace: the camera moves on the source time the platform publishes.
    so.simFollowsSourceClock = p.run.pace != "realtime";
    if (o.arm) {
        // The camera build's own arithmetic, its libraries from the armhf root.
        so.daemonWrapper = {"/usr/bin/qemu-arm", "-L", "/usr/arm-linux-gnueabihf"};
    }
    if (!p.delivered.empty()) {
        so.daemonEnv["FACEDET_DELIVERED_FRAMES"] = p.delivered;
    }
    std::string error;
    switch (l->session.start(so, &error, &p.run.notes)) {
        case Session::Start::NoFolder:
            fprintf(stderr, "facedet_replay: %s\n", error.c_str());
            return 2;
        case Session::Start::NoCamera:
            fprintf(stderr, "facedet_replay: %s\n", error.c_str());
            return 1;
        case Session::Start::NoDaemon:  // judged as "could not be started"
        case Session::Start::Ok:
            break;
    }
    return 0;
}

}  // namespace replay
