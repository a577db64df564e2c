// The frame counter and the shared-memory key setting.
#include <vector>

#include <gtest/gtest.h>

#include "faceDet/get_stream_thread.h"
#include "faceDet/runtime_env.h"

TEST(FrameCounter, CountsUpAndWrapsAboveTheWarmUp) {
    EXPECT_EQ((std::vector<int>{next_frame_number(0), next_frame_number(9), next_frame_number(9999999),
                                next_frame_number(10000000)}),
              (std::vector<int>{1, 10, 10000000, 10}));  // wraps to just past the warm-up
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
