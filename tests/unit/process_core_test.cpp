// Process-wide state, the exit handler, the frame counter and the runtime settings.
#include <signal.h>
#include <sys/types.h>

#include <gtest/gtest.h>

#include "faceDet/get_stream_thread.h"
#include "faceDet/process_globals.h"
#include "faceDet/runtime_env.h"
#include "output_capture.h"

TEST(ProcessGlobals, StreamRecordStartsWithTheAnalysisPortDefaults) {
    const QMT_Stream_Stauts_t &r = g_stream_stauts[0];
    EXPECT_EQ(r.u32Enable, 0u);
    EXPECT_EQ(r.u32InputChn, 0u);
    EXPECT_EQ(r.u32InputPort, 1u);
    EXPECT_EQ(static_cast<int>(r.ePixelFormat), 11);
    EXPECT_EQ(static_cast<int>(r.eBindType), 1);
    EXPECT_EQ(r.u32Width, 416u);
    EXPECT_EQ(r.u32Height, 234u);
    EXPECT_EQ(r.u32FrameRate, 30u);
    EXPECT_EQ(WIDTH, 3840);
    EXPECT_EQ(QMT_Stream_Stauts.load(), nullptr);
}

TEST(ExitHandler, WritesItsTextWithoutLineBreakAndSetsTheFlag) {
    g_exit_all_flag = 0;
    OutputCapture capture;
    HandleExitSig(SIGTERM);
    EXPECT_EQ(capture.finish(), "program exit abnormally!");
    EXPECT_EQ(g_exit_all_flag.load(), 1);
    g_exit_all_flag = 0;
}

TEST(FrameCounter, CountsUpAndWrapsAboveTheWarmUp) {
    EXPECT_EQ(next_frame_number(0), 1);
    EXPECT_EQ(next_frame_number(9), 10);
    EXPECT_EQ(next_frame_number(9999999), 10000000);
    EXPECT_EQ(next_frame_number(10000000), 10);
    EXPECT_GT(next_frame_number(10000000), kWarmUpFrames);
}

TEST(ShmKey, ParsesDecimalAndHexOnly) {
    const std::pair<const char *, key_t> good[] = {
        {"0x1123", 0x1123}, {"4387", 4387}, {"0X7fff0001", 0x7fff0001}, {"010", 10}};  // decimal, not octal
    for (const auto &[text, expected] : good) {
        key_t key = 0;
        EXPECT_TRUE(parse_shm_key(text, &key)) << text;
        EXPECT_EQ(key, expected) << text;
    }
    key_t key = 77;
    for (const char *bad :
         {"", "abc", "0x", "12z", " 12", "0x1g", "99999999999", static_cast<const char *>(nullptr)}) {
        EXPECT_FALSE(parse_shm_key(bad, &key)) << (bad ? bad : "null");
    }
    EXPECT_EQ(key, 77);
}

TEST(RuntimeEnv, DefaultsToDevAndTheFixedKey) {
    unsetenv("FACEDET_RUNTIME_DIR");
    unsetenv("FACEDET_SHM_KEY");
    EXPECT_EQ(runtime_path("sin_addr.socket"), "/dev/sin_addr.socket");
    EXPECT_EQ(shm_key(), 0x1123);
    EXPECT_TRUE(runtime_env_valid());
}

TEST(RuntimeEnv, BadSettingsAreReportedInOneLine) {
    setenv("FACEDET_SHM_KEY", "nokey", 1);
    OutputCapture err(2);
    EXPECT_FALSE(runtime_env_valid());
    EXPECT_EQ(err.finish(), "faceDet: FACEDET_SHM_KEY='nokey' is not a key (decimal or 0x-hex)\n");
    unsetenv("FACEDET_SHM_KEY");
    setenv("FACEDET_RUNTIME_DIR", "/nonexistent/dir", 1);
    OutputCapture err2(2);
    EXPECT_FALSE(runtime_env_valid());
    EXPECT_EQ(err2.finish(), "faceDet: FACEDET_RUNTIME_DIR='/nonexistent/dir' is not a directory\n");
    unsetenv("FACEDET_RUNTIME_DIR");
}
