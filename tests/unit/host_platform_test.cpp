// The host platform's emulated media pipeline: configuration, port rules,
// queues, descriptors, frame content, faults, the frame log and its life cycle.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "frame_source.h"
#include "host_platform.h"
#include "mi_sys.h"
#include "mi_vpe.h"
#include "output_capture.h"
#include "temp_dir.h"

namespace {

constexpr int kW = 416, kH = 234;
constexpr size_t kFrameBytes = kW * kH * 3 / 2;
MI_SYS_ChnPort_t port1 = {E_MI_MODULE_ID_VPE, 0, 0, 1};

// Frame k carries k in its first two bytes and a pattern that differs per frame and per byte.
uint8_t pattern_byte(int k, size_t i) {
    return i < 2 ? static_cast<uint8_t>(i == 0 ? k & 0xFF : k >> 8)
                 : static_cast<uint8_t>(i * 7 + static_cast<size_t>(k) * 31 + (i >> 9));
}

void write_clip(const std::string &path, int frames, size_t extraBytes = 0) {
    std::vector<uint8_t> all;
    for (int k = 0; k < frames; ++k) {
        for (size_t i = 0; i < kFrameBytes; ++i) {
            all.push_back(pattern_byte(k, i));
        }
    }
    all.resize(all.size() + extraBytes, 0x55);
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char *>(all.data()), all.size());
}

int frame_index(const MI_SYS_BufInfo_t &info) {
    const uint8_t *y = static_cast<const uint8_t *>(info.stFrameData.pVirAddr[0]);
    return y[0] | (y[1] << 8);
}

bool frame_matches(const MI_SYS_BufInfo_t &info, int k) {
    const uint8_t *y = static_cast<const uint8_t *>(info.stFrameData.pVirAddr[0]);
    const uint8_t *uv = static_cast<const uint8_t *>(info.stFrameData.pVirAddr[1]);
    for (size_t i = 0; i < kFrameBytes; ++i) {
        if ((i < kW * kH ? y[i] : uv[i - kW * kH]) != pattern_byte(k, i)) {
            return false;
        }
    }
    return true;
}

bool readable(int fd, int timeoutMs) {
    pollfd p{fd, POLLIN, 0};
    return poll(&p, 1, timeoutMs) == 1 && (p.revents & POLLIN);
}

template <typename Pred>
bool wait_for(Pred pred) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!pred()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

std::vector<std::string> read_lines(const std::string &path) {
    std::ifstream in(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

MI_S32 open_port(MI_U32 user, MI_U32 queue) {
    MI_VPE_PortMode_t mode{kW, kH, E_MI_SYS_PIXEL_FRAME_YUV_SEMIPLANAR_420, E_MI_SYS_COMPRESS_MODE_NONE};
    MI_S32 r = MI_VPE_SetPortMode(0, 1, &mode);
    r = r == MI_SUCCESS ? MI_SYS_SetChnOutputPortDepth(&port1, user, queue) : r;
    return r == MI_SUCCESS ? MI_VPE_EnablePort(0, 1) : r;
}

MI_S32 get_buf(MI_SYS_BufInfo_t *info, MI_SYS_BUF_HANDLE *h) {
    return MI_SYS_ChnOutputPortGetBuf(&port1, info, h);
}

// Waits through the port's descriptor for the next frame and takes it.
bool take(int fd, MI_SYS_BufInfo_t *info, MI_SYS_BUF_HANDLE *h) {
    return readable(fd, 5000) && get_buf(info, h) == MI_SUCCESS;
}

// A clip of `frames` frames in a private directory, played by an initialised
// platform (quiet about a missing source) until the test ends.
class Host : public ::testing::Test {
  protected:
    void start(int frames, host::Pace pace, const std::string &faults = "", bool loop = false,
               size_t extraBytes = 0) {
        write_clip(clip_, frames, extraBytes);
        host::Config cfg;
        cfg.source = clip_;
        cfg.pace = pace;
        cfg.loop = loop;
        cfg.frameLogPath = log_;
        cfg.clockPath = clock_;
        std::string error;
        ASSERT_TRUE(host::parse_faults(faults, &cfg.faults, &error)) << error;
        host::use_config_for_next_init(cfg);
        OutputCapture quiet(2);
        ASSERT_EQ(MI_SYS_Init(), MI_SUCCESS);
        running_ = true;
    }
    void stop() {
        if (running_) {
            running_ = false;
            EXPECT_EQ(MI_SYS_Exit(), MI_SUCCESS);
        }
    }
    void TearDown() override { stop(); }
    TempDir dir_;
    std::string clip_ = dir_.file("clip.nv12"), log_ = dir_.file("frames.log"), clock_ = dir_.file("clock");
    bool running_ = false;
};

}  // namespace

TEST(HostConfig, FaultEntriesAreParsedOrRefusedByName) {
    host::Faults f;
    std::string error;
    ASSERT_TRUE(host::parse_faults(
        "getbuf_fail=3, "
        "getbuf_fail_every=5,putbuf_fail_every=2,getfd_fail,portmode_fail=0xA0074003,stall=1.5@10",
        &f, &error))
        << error;
    EXPECT_EQ(f.getbufFailAt, 3u);
    EXPECT_EQ(f.getbufFailEvery, 5u);
    EXPECT_EQ(f.putbufFailEvery, 2u);
    EXPECT_TRUE(f.getfdFail && f.portmodeFail);
    EXPECT_EQ(static_cast<uint32_t>(f.portmodeFailCode), 0xA0074003u);
    EXPECT_DOUBLE_EQ(f.stallSeconds, 1.5);
    EXPECT_EQ(f.stallAtFrame, 10u);
    ASSERT_TRUE(host::parse_faults("stall=0.25", &f, &error));
    EXPECT_FALSE(f.getfdFail) << "a new parse starts from no faults";
    for (const char *entry :
         {"bogus=1", "getbuf_fail", "getbuf_fail=0", "getbuf_fail=3x", "stall=abc", "stall=1@x", "stall=-1",
          "portmode_fail=0", "getfd_fail=2", "portmode_fail=0x123456789"}) {
        EXPECT_FALSE(host::parse_faults(std::string("getfd_fail,") + entry, &f, &error)) << entry;
        EXPECT_NE(error.find(std::string("'") + entry + "'"), std::string::npos) << error;
    }
}

TEST(HostConfig, BeforeInitOnlyTheClockAnswers) {
    // Before MI_SYS_Init only the clock answers: the monotonic clock in microseconds.
    EXPECT_EQ(MI_VPE_EnablePort(0, 1), MI_VPE_ERR(E_MI_ERR_NOT_INIT));
    MI_U64 pts = 0;
    ASSERT_EQ(MI_SYS_GetCurPts(&pts), MI_SUCCESS);
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    const MI_U64 now = static_cast<MI_U64>(ts.tv_sec) * 1000000u + ts.tv_nsec / 1000;
    EXPECT_LE(pts, now);
    EXPECT_GT(pts + 10000000u, now);
}

TEST_F(Host, LockstepDeliversEveryFrameInOrderAndLogsIt) {
    constexpr int kFrames = 4;
    start(kFrames, host::Pace::Lockstep, "", false,
          kFrameBytes / 2);  // a partial frame at the end is ignored
    ASSERT_EQ(open_port(1, 2), MI_SUCCESS);
    int fd = -1;
    ASSERT_EQ(MI_SYS_GetFd(&port1, &fd), MI_SUCCESS);
    std::vector<MI_U64> pts;
    for (int k = 0; k < kFrames; ++k) {
        MI_SYS_BufInfo_t info;
        MI_SYS_BUF_HANDLE h = 0;
        ASSERT_TRUE(take(fd, &info, &h)) << k;
        const MI_SYS_FrameData_t &f = info.stFrameData;
        EXPECT_EQ(f.ePixelFormat, E_MI_SYS_PIXEL_FRAME_YUV_SEMIPLANAR_420);
        EXPECT_EQ(f.u16Width * 10000 + f.u16Height, kW * 10000 + kH);
        EXPECT_EQ(f.u32Stride[0] + f.u32Stride[1], 2u * kW);
        EXPECT_EQ(f.u32BufSize, kFrameBytes);
        EXPECT_TRUE(frame_matches(info, k)) << k << " came as " << frame_index(info);
        EXPECT_FALSE(readable(fd, 0)) << "nothing is queued while the frame is held";
        pts.push_back(info.u64Pts);
        // Lockstep lives on the clip's timeline (30 fps), published for camera_sim.
        EXPECT_EQ(info.u64Pts, (k * 1000000u + 15) / 30) << k;
        MI_U64 now = 0, published = 0;
        ASSERT_EQ(MI_SYS_GetCurPts(&now), MI_SUCCESS);
        EXPECT_TRUE(now >= info.u64Pts && now < info.u64Pts + 33333) << now;
        std::ifstream(clock_, std::ios::binary).read(reinterpret_cast<char *>(&published), sizeof published);
        EXPECT_EQ(published, info.u64Pts);
        ASSERT_EQ(MI_SYS_ChnOutputPortPutBuf(h), MI_SUCCESS);
    }
    EXPECT_FALSE(readable(fd, 300));
    MI_SYS_BufInfo_t info;
    MI_SYS_BUF_HANDLE h = 0;
    EXPECT_EQ(get_buf(&info, &h), MI_SYS_ERR(E_MI_ERR_BUF_EMPTY));
    EXPECT_EQ(MI_SYS_CloseFd(fd), MI_SUCCESS);
    stop();
    const std::vector<std::string> lines = read_lines(log_);
    ASSERT_EQ(lines.size(), static_cast<size_t>(kFrames));
    for (int k = 0; k < kFrames; ++k) {
        EXPECT_EQ(lines[k], std::to_string(k) + " " + std::to_string(pts[k]) + " taken 0.1");
    }
}

TEST_F(Host, RealtimeKeepsTheNewestFramesAndHeldFramesStayIntact) {
    start(12, host::Pace::Realtime);
    ASSERT_EQ(open_port(3, 3), MI_SUCCESS);
    ASSERT_TRUE(wait_for([] { return host::pipeline_stats().sourceEnded; }));
    std::vector<MI_SYS_BUF_HANDLE> held;
    for (int k = 9; k < 12; ++k) {
        MI_SYS_BufInfo_t info;
        MI_SYS_BUF_HANDLE h = 0;
        ASSERT_EQ(get_buf(&info, &h), MI_SUCCESS);
        EXPECT_TRUE(frame_matches(info, k)) << k << " came as " << frame_index(info);
        held.push_back(h);
    }
    MI_SYS_BufInfo_t info;
    MI_SYS_BUF_HANDLE h = 0;
    for (MI_SYS_BUF_HANDLE each : held) {
        EXPECT_EQ(MI_SYS_ChnOutputPortPutBuf(each), MI_SUCCESS);
    }
    EXPECT_EQ(MI_SYS_ChnOutputPortPutBuf(held[0]), MI_SYS_ERR(E_MI_ERR_ILLEGAL_PARAM));  // twice
    EXPECT_EQ(get_buf(&info, &h), MI_SYS_ERR(E_MI_ERR_BUF_EMPTY));
    stop();
    const std::vector<std::string> lines = read_lines(log_);
    ASSERT_EQ(lines.size(), 12u);
    for (int k = 0; k < 12; ++k) {
        EXPECT_EQ(lines[k].rfind(std::to_string(k) + " ", 0), 0u) << lines[k];
        EXPECT_NE(lines[k].find(k < 9 ? " dropped 0.1" : " taken 0.1"), std::string::npos) << lines[k];
    }
}

TEST_F(Host, UserDepthLimitsHeldFramesAndLoopKeepsCounting) {
    start(3, host::Pace::Lockstep, "", true);
    ASSERT_EQ(open_port(1, 1), MI_SUCCESS);
    int fd = -1;
    ASSERT_EQ(MI_SYS_GetFd(&port1, &fd), MI_SUCCESS);
    for (int n = 0; n < 7; ++n) {
        MI_SYS_BufInfo_t info;
        MI_SYS_BUF_HANDLE h = 0;
        ASSERT_TRUE(take(fd, &info, &h));
        EXPECT_TRUE(frame_matches(info, n % 3)) << n;
        ASSERT_EQ(MI_SYS_ChnOutputPortPutBuf(h), MI_SUCCESS);
    }
    stop();
    start(10, host::Pace::Realtime, "", true);
    ASSERT_EQ(open_port(1, 2), MI_SUCCESS);
    ASSERT_EQ(MI_SYS_GetFd(&port1, &fd), MI_SUCCESS);
    MI_SYS_BufInfo_t held, info;
    MI_SYS_BUF_HANDLE heldHandle = 0, h = 0;
    ASSERT_TRUE(take(fd, &held, &heldHandle));
    const int heldIndex = frame_index(held);
    const uint64_t seen = host::pipeline_stats().sourceFrames;
    ASSERT_TRUE(wait_for([&] { return host::pipeline_stats().sourceFrames >= seen + 6; }));
    EXPECT_EQ(get_buf(&info, &h), MI_SYS_ERR(E_MI_ERR_NOBUF));
    EXPECT_TRUE(frame_matches(held, heldIndex)) << "a held frame was overwritten";
}

TEST(HostFrames, ScalesARawFrameForASecondPortOfAnotherSize) {
    std::vector<uint8_t> src(8 * 4 * 3 / 2), dst(6 * 2 * 3 / 2);
    for (size_t i = 0; i < src.size(); ++i) {
        src[i] = static_cast<uint8_t>(i);
    }
    host::scale_nv12_nearest(src.data(), 8, 4, dst.data(), 6, 2);
    // Nearest pixels of every second row (8 -> 6 across); U,V pairs stay together.
    EXPECT_EQ(dst, (std::vector<uint8_t>{0, 1, 2, 4, 5, 6, 16, 17, 18, 20, 21, 22, 32, 33, 34, 35, 36, 37}));
}

#if !FACEDET_HOST_HAS_OPENCV
TEST(HostNoOpenCv, OnlyRawSourcesAreOffered) {
    std::string error;
    EXPECT_EQ(host::open_frame_source("/dev/null", &error), nullptr);
    EXPECT_NE(error.find("raw NV12"), std::string::npos) << error;
}
#endif
