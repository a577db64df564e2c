// The real daemon on the host platform: start-up, frames, faults and shutdown.
#include <signal.h>

#include <cstdio>

#include "daemon_fixture.h"

namespace {

const char kStartFailure[] = "QMT_Video_Stream_Start failed\nerror exit\nQMT_Video_Stream_Stop failed\n";
const char kChannelLine[] = "g_stream_stauts[0].u32InputChn == 0  g_stream_stauts[0].u32InputPort == 1\n";

}  // namespace

TEST_F(DaemonTest, BannerOnlyWithoutArguments) {
    // Only the detector's load lines, printed before main, may come first.
    auto plain = start({}, {}, false);
    EXPECT_EQ(plain->wait_exit(30s), 255);
    std::string out = plain->out();
    // The control thread's first line may come anywhere after the endpoints are up.
    EXPECT_TRUE(InOrder(out, {"faceDet starting!\n", kChannelLine, "[qmt_rgn_init 569]"}));

    auto withArgument = start({}, {"-x"}, false);
    EXPECT_EQ(withArgument->wait_exit(30s), 255);
    out = withArgument->out();
    EXPECT_EQ(out.find("faceDet starting!"), std::string::npos);
    EXPECT_TRUE(InOrder(out, {kChannelLine, "[qmt_rgn_init 569]"}));
}

TEST_F(DaemonTest, NoSourceTakesTheStreamStartFailurePath) {
    auto daemon = start({}, {}, false);
    EXPECT_EQ(daemon->wait_exit(30s), 255);
    std::string out = daemon->out();
    EXPECT_TRUE(InOrder(
        out, {"[qmt_rgn_init 569]exec function pass\n", "xxxxxxxxxxx........ST_Vpe_StartPort......0  1....\n",
              "[ST_Vpe_StartPort 148]exec function failed, error:",
              "[QMT_Video_Stream_Start 2580]exec function failed, error:", kStartFailure}));
    EXPECT_EQ(out.find("QMT_Video_Stream_Stop succeed!"), std::string::npos);
    EXPECT_NE(daemon->err().find("FACEDET_SOURCE"), std::string::npos) << daemon->err();
}

TEST_F(DaemonTest, UnreadableSourceIsNamedAndFailsTheStart) {
    auto daemon = start({{"FACEDET_SOURCE", dir_.file("missing.nv12")}});
    EXPECT_EQ(daemon->wait_exit(30s), 255);
    EXPECT_NE(daemon->out().find(kStartFailure), std::string::npos);
    EXPECT_NE(daemon->err().find("missing.nv12"), std::string::npos) << daemon->err();
}

TEST_F(DaemonTest, BadSettingsGetOneClearLine) {
    auto unknownFault = start({{"FACEDET_FAULTS", "explode=1"}});
    EXPECT_EQ(unknownFault->wait_exit(30s), 255);
    EXPECT_NE(unknownFault->err().find("explode"), std::string::npos) << unknownFault->err();
    EXPECT_NE(unknownFault->out().find(kStartFailure), std::string::npos);

    auto badKey = start({{"FACEDET_SHM_KEY", "0xZZ"}});
    EXPECT_EQ(badKey->wait_exit(30s), 255);
    EXPECT_NE(badKey->err().find("faceDet: FACEDET_SHM_KEY='0xZZ' is not a key (decimal or 0x-hex)\n"),
              std::string::npos)
        << badKey->err();
    EXPECT_EQ(badKey->out().find("faceDet starting!"), std::string::npos);
}

class DaemonSignalTest : public DaemonTest, public ::testing::WithParamInterface<int> {};

TEST_P(DaemonSignalTest, SignalDuringSteadyRunningStopsInOrder) {
    auto daemon = start({{"FACEDET_LOOP", "1"}});
    ASSERT_TRUE(daemon->wait_for_output("--------------frameNumber = 15-----------------", 60s))
        << daemon->out();
    daemon->signal(GetParam());
    ASSERT_EQ(daemon->wait_exit(30s), 0) << daemon->out() << daemon->err();
    std::string out = daemon->out();
    EXPECT_TRUE(InOrder(
        out,
        {"faceDet starting!\n", kChannelLine, "[qmt_rgn_init 569]exec function pass\n",
         "[ST_Vpe_StartPort 161]exec function pass\n", "(QMT_Video_Stream_Start 2580)exec function pass\n",
         "(QMT_Video_Stream_Start 2582)exec function pass\n",
         "QMT_Stream_Stauts_t u32Enable=1, u32InputChn=0; u32InputPort=1; ePixelFormat=11; "
         "eBindType=1;u32Width=416; u32Height=234; u32FrameRate=30; stream_thread_pid=",
         "; dstChnPort=7\n", "--------------frameNumber = 10-----------------", " ******** get frame time =[",
         "program exit abnormally!", "faceDet release!", "get_stream_thread exit",
         "[ST_Vpe_StopPort 168]exec function pass\n", "(QMT_Video_Stream_Stop 2517)exec function pass\n",
         "QMT_Video_Stream_Stop succeed!\n"}));
    EXPECT_EQ(count_of(out, "program exit abnormally!"), 1u);
    // The warm-up frames are only counted.
    EXPECT_GT(out.find(" ******** get frame time"), out.find("--------------frameNumber = 10-"));
}

INSTANTIATE_TEST_SUITE_P(SigintAndSigterm, DaemonSignalTest, ::testing::Values(SIGINT, SIGTERM));

TEST_F(DaemonTest, ClipPlaysToItsEndAndTheDaemonStopsItself) {
    auto daemon = start({{"FACEDET_SOURCE", raw_clip(40)},
                         {"FACEDET_PACE", "lockstep"},
                         {"FACEDET_EXIT_AT_END", "1"},
                         {"FACEDET_FRAME_LOG", dir_.file("frames.log")}});
    ASSERT_EQ(daemon->wait_exit(60s), 0) << daemon->out() << daemon->err();
    std::string out = daemon->out();
    EXPECT_NE(out.find("--------------frameNumber = 40-----------------"), std::string::npos);
    EXPECT_EQ(out.find("--------------frameNumber = 41-"), std::string::npos);
    EXPECT_EQ(count_of(read_file(dir_.file("frames.log")), " taken "), 40u);
    EXPECT_NE(out.find("QMT_Video_Stream_Stop succeed!"), std::string::npos);
}

TEST_F(DaemonTest, GetBufFailuresAreLoggedAndSurvived) {
    auto daemon = start(
        {{"FACEDET_FAULTS", "getbuf_fail_every=4"}, {"FACEDET_PACE", "lockstep"}, {"FACEDET_LOOP", "1"}});
    ASSERT_TRUE(daemon->wait_for_output("--------------frameNumber = 30-----------------", 60s))
        << daemon->out();
    daemon->signal(SIGTERM);
    ASSERT_EQ(daemon->wait_exit(30s), 0);
    EXPECT_GE(count_of(daemon->out(), "MI_SYS_ChnOutputPortGetBuf Failed\n"), 5u);
}

TEST_F(DaemonTest, PutBufFailuresAreLoggedAndProcessingGoesOn) {
    auto daemon = start(
        {{"FACEDET_FAULTS", "putbuf_fail_every=3"}, {"FACEDET_PACE", "lockstep"}, {"FACEDET_LOOP", "1"}});
    ASSERT_TRUE(daemon->wait_for_output("--------------frameNumber = 30-----------------", 60s))
        << daemon->out();
    daemon->signal(SIGTERM);
    ASSERT_EQ(daemon->wait_exit(30s), 0);
    EXPECT_GE(count_of(daemon->out(), "Release Frame Failed\n"), 5u);
}

TEST_F(DaemonTest, StalledSourceTimesOutAndRecovers) {
    // The frame thread waits 2 s before its first select; the source stalls past that and one time-out.
    auto daemon = start({{"FACEDET_FAULTS", "stall=5"}, {"FACEDET_LOOP", "1"}});
    ASSERT_TRUE(daemon->wait_for_output("--------------frameNumber = 3-", 60s)) << daemon->out();
    daemon->signal(SIGTERM);
    ASSERT_EQ(daemon->wait_exit(30s), 0);
    EXPECT_TRUE(InOrder(daemon->out(), {"get frame time out\n", "--------------frameNumber = 1-"}));
}

TEST_F(DaemonTest, DescriptorFailureEndsTheFrameThreadAndTheDaemon) {
    auto daemon = start({{"FACEDET_FAULTS", "getfd_fail"}});
    ASSERT_EQ(daemon->wait_exit(60s), 0) << daemon->out();
    EXPECT_TRUE(InOrder(daemon->out(), {"MI_SYS_GetFd error, ", "get_stream_thread exit",
                                        "(QMT_Video_Stream_Stop 2517)exec function pass\n",
                                        "QMT_Video_Stream_Stop succeed!\n"}));
    EXPECT_EQ(daemon->out().find("frameNumber"), std::string::npos);
}

TEST_F(DaemonTest, TwoDaemonsInTwoRuntimeDirectoriesAtOnce) {
    TempDir otherDir;
    auto first = start({{"FACEDET_LOOP", "1"}});
    ChildProcess::Options options;
    options.env = {{"FACEDET_RUNTIME_DIR", otherDir.path()},
                   {"FACEDET_SHM_KEY", daemon_env().at("FACEDET_SHM_KEY")},
                   {"FACEDET_SOURCE", raw_clip(300)},
                   {"FACEDET_LOOP", "1"}};
    options.workDir = otherDir.path();
    link_models(otherDir.path());
    ChildProcess second(FACEDET_BIN, options);
    ASSERT_TRUE(first->wait_for_output("--------------frameNumber = 12-", 60s)) << first->out();
    ASSERT_TRUE(second.wait_for_output("--------------frameNumber = 12-", 60s)) << second.out();
    first->signal(SIGTERM);
    second.signal(SIGTERM);
    EXPECT_EQ(first->wait_exit(30s), 0);
    EXPECT_EQ(second.wait_exit(30s), 0);
}

#ifdef FACEDET_HOST_HAS_OPENCV_TESTS
TEST_F(DaemonTest, SampleVideoIsCountedFrameByFrame) {
    auto daemon = start(
        {{"FACEDET_SOURCE", std::string(FACEDET_SHARED_DIR) + "/data/videos/talking_head_single_person.mp4"},
         {"FACEDET_PACE", "lockstep"},
         {"FACEDET_EXIT_AT_END", "1"}});
    ASSERT_EQ(daemon->wait_exit(60s), 0) << daemon->out() << daemon->err();
    EXPECT_NE(daemon->out().find("--------------frameNumber = 62-----------------"), std::string::npos);
    EXPECT_EQ(daemon->out().find("--------------frameNumber = 63-"), std::string::npos);
}
#endif

TEST(DaemonBinary, ExportsTheIspHooks) {
    std::string command = std::string("nm -D --defined-only ") + FACEDET_BIN;
    FILE *pipe = popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string symbols;
    char chunk[4096];
    size_t n;
    while ((n = fread(chunk, 1, sizeof chunk, pipe)) > 0) {
        symbols.append(chunk, n);
    }
    pclose(pipe);
    EXPECT_NE(symbols.find(" T MI_ISP_EnableUserspace3A\n"), std::string::npos);
    EXPECT_NE(symbols.find(" T MI_ISP_DisableUserspace3A\n"), std::string::npos);
}
