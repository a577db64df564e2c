// Every tool's command line keeps the same conventions: --help prints the
// usage on stdout and exits 0; an unknown option or a bad value gives one
// line on stderr naming the tool, nothing on stdout, and exit status 2.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "process_helpers.h"
#include "temp_dir.h"

using namespace std::chrono_literals;

namespace {

struct Tool {
    const char *name;
    const char *path;
    std::vector<std::string> badValue;  // a command line with one value out of range
};

const Tool kTools[] = {
    {"camera_sim", CAMERA_SIM_BIN, {"--seconds", "0"}},
    {"facedet_ctl", FACEDET_CTL_BIN, {"1", "300"}},
    {"gamma_peer", GAMMA_PEER_BIN, {"--every", "0"}},
    {"shm_track_test", SHM_TRACK_TEST_BIN, {"--rounds", "2x"}},
    {"engine_runs", ENGINE_RUNS_BIN, {"--threads", "17", "--runs", "1"}},
#ifdef FACEDET_DETECT_BIN
    {"facedet_detect", FACEDET_DETECT_BIN, {"--threads", "0", "photo.png"}},
#endif
#ifdef FACEDET_REPLAY_BIN
    {"facedet_replay", FACEDET_REPLAY_BIN, {"clip.nv12", "--out", "out", "--frame-cost", "10001"}},
#endif
#ifdef FACEDET_LIVE_BIN
    {"facedet_live", FACEDET_LIVE_BIN, {"clip.nv12", "--port", "70000"}},
#endif
#ifdef SCENARIO_CLIP_BIN
    {"scenario_clip", SCENARIO_CLIP_BIN, {"--scenario", "enter", "--frames", "1", "--out", "clip.nv12"}},
#endif
};

}  // namespace

TEST(ToolCommandLines, HelpOnStdoutAndOneLineOnStderrWithStatus2ForAnUnknownOptionOrABadValue) {
    TempDir dir;
    for (const Tool &tool : kTools) {
        auto help = spawn(tool.path, {"--help"}, dir.path());
        EXPECT_EQ(help->wait_exit(20s), 0) << tool.name;
        const std::string usage = help->out();
        EXPECT_EQ(usage.rfind(std::string("usage: ") + tool.name + " ", 0), 0u) << usage;
        EXPECT_NE(usage.find("\nOptions:\n  -h,--help "), std::string::npos) << usage;
        EXPECT_EQ(help->err(), "") << tool.name;

        for (const std::vector<std::string> &args :
             {std::vector<std::string>{"--no-such-option"}, tool.badValue}) {
            auto refused = spawn(tool.path, args, dir.path());
            EXPECT_EQ(refused->wait_exit(20s), 2) << tool.name << " " << args[0];
            EXPECT_EQ(refused->out(), "") << tool.name << " " << args[0];
            const std::string err = refused->err();
            EXPECT_EQ(count_of(err, "\n"), 1u) << err;
            EXPECT_EQ(err.rfind(std::string(tool.name) + ": ", 0), 0u) << err;
            EXPECT_NE(err.find(args.size() == 1 ? args[0] : "'"), std::string::npos) << err;
        }
    }
}
