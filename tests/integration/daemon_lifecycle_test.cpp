// The real daemon on the host platform: start-up, failed starts and the frame
// thread's own end. Faults and signals: fault_matrix_test; a clip played to its
// end in lockstep: replay_test.
#include <signal.h>

#include <cstdlib>

#include "control.h"
#include "daemon_fixture.h"
#include "daemon_log.h"
#include "run_logs.h"

namespace {

const char kStartFailure[] = "QMT_Video_Stream_Start failed\nerror exit\nQMT_Video_Stream_Stop failed\n";
const auto npos = std::string::npos;

}  // namespace

TEST_F(DaemonTest, WithoutASourceTheStreamStartFailsAndOnlyANoArgumentRunPrintsTheBanner) {
    for (const bool withArgument : {false, true}) {
        auto daemon =
            start({}, withArgument ? std::vector<std::string>{"-x"} : std::vector<std::string>{}, false);
        EXPECT_EQ(daemon->wait_exit(30s), 255);
        const std::string out = daemon->out();
        // Only the detector's load lines, printed before main, may come before the banner.
        EXPECT_EQ(out.find("faceDet starting!\n") == npos, withArgument) << out;
        EXPECT_TRUE(InOrder(
            out,
            {withArgument ? "" : "faceDet starting!\n",
             "g_stream_stauts[0].u32InputChn == 0  g_stream_stauts[0].u32InputPort == 1\n",
             "[qmt_rgn_init 569]exec function pass\n", "xxxxxxxxxxx........ST_Vpe_StartPort......0  1....\n",
             "[ST_Vpe_StartPort 148]exec function failed, error:",
             "[QMT_Video_Stream_Start 2580]exec function failed, error:", kStartFailure}));
        EXPECT_EQ(out.find("QMT_Video_Stream_Stop succeed!"), npos);
        EXPECT_NE(daemon->err().find("FACEDET_SOURCE"), npos) << daemon->err();
    }
}

TEST_F(DaemonTest, BadSettingsGetOneClearLineAndStatus255) {
    const struct {
        std::string name, value, error;
        bool streamStarts;  // false: refused before the banner
    } rows[] = {
        {"FACEDET_SOURCE", dir_.file("missing.nv12"), "missing.nv12", true},
        {"FACEDET_FAULTS", "explode=1", "explode", true},
        {"FACEDET_FRAME_COST_MS", "0", "FACEDET_FRAME_COST_MS '0' is not a number of milliseconds", true},
        {"FACEDET_SHM_KEY", "0xZZ", "faceDet: FACEDET_SHM_KEY='0xZZ' is not a key (decimal or 0x-hex)\n",
         false},
    };
    for (const auto &row : rows) {
        auto daemon = start({{row.name, row.value}});
        EXPECT_EQ(daemon->wait_exit(30s), 255) << row.name;
        EXPECT_NE(daemon->err().find(row.error), npos) << daemon->err();
        EXPECT_EQ(daemon->out().find(row.streamStarts ? kStartFailure : "faceDet starting!") != npos,
                  row.streamStarts)
            << daemon->out();
    }
}

TEST_F(DaemonTest, DescriptorFailureEndsTheFrameThreadAndTheDaemon) {
    auto daemon = start({{"FACEDET_FAULTS", "getfd_fail"}});
    ASSERT_EQ(daemon->wait_exit(60s), 0) << daemon->out();
    EXPECT_TRUE(InOrder(daemon->out(), {"MI_SYS_GetFd error, ", "get_stream_thread exit",
                                        "(QMT_Video_Stream_Stop 2517)exec function pass\n",
                                        "QMT_Video_Stream_Stop succeed!\n"}));
    EXPECT_EQ(daemon->out().find("frameNumber"), npos);
}

TEST_F(DaemonTest, TwoDaemonsInTwoRuntimeDirectoriesAtOnce) {
    TempDir otherDir;
    auto first = start({{"FACEDET_LOOP", "1"}});
    link_models(otherDir.path());
    auto second = spawn(FACEDET_BIN, {}, otherDir.path(),
                        {{"FACEDET_RUNTIME_DIR", otherDir.path()},
                         {"FACEDET_SHM_KEY", daemon_env().at("FACEDET_SHM_KEY")},
                         {"FACEDET_SOURCE", raw_clip(300)},
                         {"FACEDET_LOOP", "1"}});
    for (ChildProcess *daemon : {first.get(), second.get()}) {
        ASSERT_TRUE(daemon->wait_for_output("--------------frameNumber = 12-", 60s)) << daemon->out();
    }
    for (ChildProcess *daemon : {first.get(), second.get()}) {
        daemon->signal(SIGTERM);
        EXPECT_EQ(daemon->wait_exit(30s), 0);
    }
}

// The camera pace's contract with the frame loop: the platform tells what the
// loop did with a frame by its clock reads, and charges the camera's time so
// that the stage lines show it where the camera spends it: the rest of a
// frame's cost in "get frame", the analysis in "invoke".
TEST_F(DaemonTest, AtTheCamerasPaceTheStageLinesCarryTheCamerasTime) {
    const struct {
        bool running;
        const char *costMs;
        int getFrameMs, invokeMs, allMs;  // -1: no such line
        int frames;                       // of the clip
    } rows[] = {
        // 189 ms: 2.06 ms of rest, 186.9 of analysis; frames wait in the queue
        // meanwhile, so no frame but the first waits for its take.
        {true, "189", 2, 186, 189, 120},
        // Stopped: only the rest, 43.6 ms of 4 s, which is more than a frame
        // period, so again no frame waits. (The first stopped frame is
        // charged an analysis too, which drops 4 s of the clip.)
        {false, "4000", 43, -1, -1, 200},
    };
    for (const auto &row : rows) {
        auto daemon = start({{"FACEDET_SOURCE", raw_clip(row.frames)},
                             {"FACEDET_PACE", "camera"},
                             {"FACEDET_FRAME_COST_MS", row.costMs},
                             {"FACEDET_EXIT_AT_END", "1"}});
        if (row.running) {
            // Sent while the frame thread sleeps its first two seconds.
            const uint8_t run[2] = {0x01, 0x01};
            ASSERT_TRUE(
                eventually([&] { return send_control(daemon_env().at("FACEDET_RUNTIME_DIR"), run); }, 20s));
        }
        ASSERT_EQ(daemon->wait_exit(120s), 0) << daemon->err();
        const logs::DaemonLog log = logs::parse_daemon_log(daemon->out());
        int checked = 0;
        for (size_t i = 0; i < log.frames.size(); ++i) {
            const logs::TakenFrame &f = log.frames[i];
            if (!f.analysed) {
                continue;  // warm-up: no stage lines
            }
            ASSERT_EQ(f.framingRan, row.running) << "frame " << f.frameNumber;
            EXPECT_EQ(f.autogammaMs, 0) << "frame " << f.frameNumber;
            EXPECT_EQ(f.invokeMs, row.invokeMs) << "frame " << f.frameNumber;
            if (f.frameNumber == 10) {
                continue;  // the first after the warm-up waits for its frame
            }
            EXPECT_EQ(f.getFrameMs, row.getFrameMs) << "frame " << f.frameNumber;
            EXPECT_EQ(f.allMs, row.allMs) << "frame " << f.frameNumber;
            ++checked;
        }
        EXPECT_GE(checked, 3) << daemon->out().substr(0, 2000);
    }
}

// Stopped, the frame loop pauses 100 ms after each frame. At the camera's
// pace that is the camera's time: frames keep coming meanwhile and the port
// drops all but its newest, so about every third frame is taken, as on a
// camera. In lockstep the pause costs nothing and every frame is taken.
TEST_F(DaemonTest, PausesWhileStoppedAreThePacesTime) {
    for (const std::string pace : {"camera", "lockstep"}) {
        auto daemon = start({{"FACEDET_SOURCE", raw_clip(60)},
                             {"FACEDET_PACE", pace},
                             {"FACEDET_FRAME_LOG", dir_.file("frames.log")},
                             {"FACEDET_EXIT_AT_END", "1"}});
        ASSERT_EQ(daemon->wait_exit(120s), 0) << daemon->err();
        std::vector<int> taken;
        for (const logs::FrameLogEntry &e : logs::parse_frame_log(read_file(dir_.file("frames.log")))) {
            if (e.taken) {
                taken.push_back(static_cast<int>(e.sourceIndex));
            }
        }
        ASSERT_GT(taken.size(), 14u) << pace;
        if (pace == "lockstep") {
            EXPECT_EQ(taken.size(), 60u);
            continue;
        }
        // 2 ms of the camera's work and 100 ms of pause, 3.06 frame periods:
        // from the second stopped frame on (the first is charged an analysis
        // too), to the two frames the port still holds at the clip's end.
        for (size_t i = 12; i + 2 < taken.size(); ++i) {
            const int gap = taken[i] - taken[i - 1];
            EXPECT_TRUE(gap == 3 || gap == 4) << "frame " << taken[i] << " after " << taken[i - 1];
        }
    }
}

TEST(DaemonBinary, ExportsTheIspHooks) {
    for (const char *hook : {"MI_ISP_EnableUserspace3A", "MI_ISP_DisableUserspace3A"}) {
        const std::string command =
            std::string("nm -D --defined-only ") + FACEDET_BIN + " | grep -q ' T " + hook + "$'";
        EXPECT_EQ(system(command.c_str()), 0) << hook;
    }
}
