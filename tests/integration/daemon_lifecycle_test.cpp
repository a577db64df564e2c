// The real daemon on the host platform: start-up, failed starts and the frame
// thread's own end. Faults and signals: fault_matrix_test; a clip played to its
// end in lockstep: replay_test.
#include <signal.h>

#include <cstdlib>

#include "daemon_fixture.h"

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

TEST(DaemonBinary, ExportsTheIspHooks) {
    for (const char *hook : {"MI_ISP_EnableUserspace3A", "MI_ISP_DisableUserspace3A"}) {
        const std::string command =
            std::string("nm -D --defined-only ") + FACEDET_BIN + " | grep -q ' T " + hook + "$'";
        EXPECT_EQ(system(command.c_str()), 0) << hook;
    }
}
