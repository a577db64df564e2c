// Process-wide state, the exit handler, the frame counter and the runtime settings.
#include <signal.h>
#include <sys/types.h>

#include <gtest/gtest.h>

#include "faceDet/get_stream_thread.h"
#include "faceDet/process_globals.h"
#include "faceDet/runtime_env.h"
#include "output_capture.h"

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
