#include "daemon_fixture.h"

#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <atomic>

#include "raw_clip.h"

DaemonTest::~DaemonTest() {
    for (int key : keys_) {
        int id = shmget(key, 0, 0);
        if (id >= 0) {
            shmctl(id, IPC_RMID, nullptr);
        }
    }
}

std::map<std::string, std::string> DaemonTest::daemon_env() const {
    static std::atomic<int> sequence{0};
    // Keys unique to this test process and run; the default 0x1123 is never touched.
    int key = 0x46440000 + ((getpid() & 0xfff) << 4) + (sequence++ & 0xf);
    keys_.push_back(key);
    return {{"FACEDET_RUNTIME_DIR", dir_.path()}, {"FACEDET_SHM_KEY", std::to_string(key)}};
}

std::string DaemonTest::raw_clip(int frames) {
    std::string path = dir_.file("clip.nv12");
    write_raw_clip(path, frames);
    return path;
}

namespace {

// Settings a test names itself when it wants them, never from its own environment.
const std::vector<std::string> kTestSettings = {
    "FACEDET_PACE",   "FACEDET_FRAME_COST_MS", "FACEDET_LOOP",   "FACEDET_EXIT_AT_END",
    "FACEDET_FAULTS", "FACEDET_FRAME_LOG",     "FACEDET_RECORD", "FACEDET_RECORD_MAX_MB"};

}  // namespace

std::unique_ptr<ChildProcess> DaemonTest::start(const std::map<std::string, std::string> &extraEnv,
                                                std::vector<std::string> args, bool withSource) {
    ChildProcess::Options options;
    options.args = std::move(args);
    options.env = daemon_env();
    if (withSource && extraEnv.count("FACEDET_SOURCE") == 0) {
        options.env["FACEDET_SOURCE"] = raw_clip(300);
    }
    for (const auto &[name, value] : extraEnv) {
        options.env[name] = value;
    }
    options.unsetEnv = kTestSettings;
    if (!withSource) {
        options.unsetEnv.push_back("FACEDET_SOURCE");
    }
    options.workDir = dir_.path();
    link_models(dir_.path());
    return std::make_unique<ChildProcess>(FACEDET_BIN, options);
}

std::unique_ptr<ChildProcess> DaemonTest::start_camera_qemu(
    const std::map<std::string, std::string> &extraEnv) {
    ChildProcess::Options options;
    options.env = daemon_env();
    for (const auto &[name, value] : extraEnv) {
        options.env[name] = value;
    }
    options.unsetEnv = kTestSettings;
    options.workDir = dir_.path();  // for its output; the script runs it from its model folder
    return std::make_unique<ChildProcess>(camera_qemu_script(), options);
}

std::string camera_qemu_script() {
    const std::string script = FACEDET_CAMERA_QEMU;
    if (script.empty() || !file_exists("/usr/bin/qemu-arm")) {
        return "";
    }
    const std::string root = script.substr(0, script.rfind("/scripts/"));
    for (const char *built : {"/build/arm/mi-sdk/lib/libmi_sys.so", "/build/camera-qemu/src/faceDet",
                              "/build/camera-qemu/platform/recorder/libfacedet_recorder.so"}) {
        if (!file_exists(root + built)) {
            return "";
        }
    }
    return script;
}

void link_models(const std::string &workDir) {
    // The daemon loads its model from its working directory, as on the camera.
    const std::string models = std::string(FACEDET_SHARED_DIR) + "/models/";
    for (const char *name : {"slim-320-quant-ADMM-50.mnn", "slim-320.onnx"}) {
        std::string link = workDir + "/" + name;
        if (!file_exists(link)) {
            if (symlink((models + name).c_str(), link.c_str()) != 0) {
                perror("symlink");
            }
        }
    }
}

::testing::AssertionResult InOrder(const std::string &text, const std::vector<std::string> &expected) {
    size_t at = 0;
    for (const std::string &line : expected) {
        size_t found = text.find(line, at);
        if (found == std::string::npos) {
            return ::testing::AssertionFailure()
                   << "not found after offset " << at << ": \"" << line << "\"\n--- output ---\n"
                   << text.substr(0, 20000);
        }
        at = found + line.size();
    }
    return ::testing::AssertionSuccess();
}
