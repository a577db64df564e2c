// The host platform's emulated media pipeline: configuration, port rules,
// queues, descriptors, frame content, faults, the frame log and its life cycle.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
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

#if FACEDET_HOST_HAS_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/videoio.hpp>
#endif

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
    std::string clip_ = dir_.file("clip.nv12"), log_ = dir_.file("frames.log");
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

TEST(HostConfig, EnvironmentProblemsLeaveChannelZeroMissingWithOneLine) {
    struct Case {
        const char *source, *pace, *faults, *expected;
    } cases[] = {
        {"", "", "", "host platform: FACEDET_SOURCE is not set: VPE channel 0 has no frame source\n"},
        {"/nonexistent/clip.nv12", "", "",
         "cannot open FACEDET_SOURCE '/nonexistent/clip.nv12': No such file"},
        {"/nonexistent/clip.nv12", "warp", "", "'warp'"},
        {"/nonexistent/clip.nv12", "", "stall=1,frobnicate", "'frobnicate'"},
    };
    for (const Case &c : cases) {
        setenv("FACEDET_SOURCE", c.source, 1);
        setenv("FACEDET_PACE", c.pace, 1);
        setenv("FACEDET_FAULTS", c.faults, 1);
        OutputCapture capture(2);
        EXPECT_EQ(MI_SYS_Init(), MI_SUCCESS);
        const std::string text = capture.finish();
        MI_VPE_PortMode_t mode{};
        EXPECT_EQ(MI_VPE_GetPortMode(0, 1, &mode), MI_VPE_ERR(E_MI_ERR_UNEXIST)) << c.expected;
        EXPECT_EQ(MI_SYS_Exit(), MI_SUCCESS);
        EXPECT_NE(text.find(c.expected), std::string::npos) << text;
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
    }
    for (const char *name : {"FACEDET_SOURCE", "FACEDET_PACE", "FACEDET_FAULTS"}) {
        unsetenv(name);
    }
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
    std::vector<uint8_t> src(8 * 4 * 3 / 2), dst(4 * 2 * 3 / 2);
    for (size_t i = 0; i < src.size(); ++i) {
        src[i] = static_cast<uint8_t>(i);
    }
    host::scale_nv12_nearest(src.data(), 8, 4, dst.data(), 4, 2);
    // Every second luma pixel of every second row; U,V pairs stay together.
    EXPECT_EQ(dst, (std::vector<uint8_t>{0, 2, 4, 6, 16, 18, 20, 22, 32, 33, 36, 37}));
}

namespace {
std::atomic<int> g_sigterms{0};
}  // namespace

TEST_F(Host, ExitAtEndRaisesSigtermOnceAfterTheLastFrameIsBack) {
    struct sigaction act {
    }, old{};
    act.sa_handler = [](int) { g_sigterms.fetch_add(1); };
    sigemptyset(&act.sa_mask);
    ASSERT_EQ(sigaction(SIGTERM, &act, &old), 0);
    write_clip(clip_, 3);
    host::Config cfg;
    cfg.source = clip_;
    cfg.exitAtEnd = true;  // realtime: the clip ends while its frames still wait in the queue
    host::use_config_for_next_init(cfg);
    ASSERT_EQ(MI_SYS_Init(), MI_SUCCESS);
    running_ = true;
    ASSERT_EQ(open_port(1, 3), MI_SUCCESS);
    ASSERT_TRUE(wait_for([] { return host::pipeline_stats().sourceEnded; }));
    MI_SYS_BUF_HANDLE last = 0;
    for (int k = 0; k < 3; ++k) {
        MI_SYS_BufInfo_t info;
        ASSERT_EQ(get_buf(&info, &last), MI_SUCCESS);
        EXPECT_EQ(frame_index(info), k);
        if (k < 2) {
            ASSERT_EQ(MI_SYS_ChnOutputPortPutBuf(last), MI_SUCCESS);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_EQ(g_sigterms.load(), 0) << "raised with frames queued or held";
    }
    ASSERT_EQ(MI_SYS_ChnOutputPortPutBuf(last), MI_SUCCESS);
    EXPECT_TRUE(wait_for([] { return g_sigterms.load() > 0; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(g_sigterms.load(), 1);
    sigaction(SIGTERM, &old, nullptr);
}

TEST_F(Host, InjectedFaultsLeaveThePipelineRunning) {
    start(4, host::Pace::Lockstep, "getbuf_fail=2,putbuf_fail_every=1,portmode_fail=0xA0074003");
    MI_VPE_PortMode_t mode{};
    EXPECT_EQ(static_cast<uint32_t>(MI_VPE_GetPortMode(0, 1, &mode)), 0xA0074003u);
    EXPECT_EQ(MI_VPE_GetPortMode(0, 1, &mode), MI_SUCCESS);  // only the first call
    ASSERT_EQ(open_port(1, 2), MI_SUCCESS);
    int fd = -1;
    ASSERT_EQ(MI_SYS_GetFd(&port1, &fd), MI_SUCCESS);
    MI_SYS_BufInfo_t info;
    MI_SYS_BUF_HANDLE h = 0;
    ASSERT_TRUE(take(fd, &info, &h));
    EXPECT_EQ(frame_index(info), 0);
    EXPECT_NE(MI_SYS_ChnOutputPortPutBuf(h), MI_SUCCESS);  // reported, yet given back: lockstep moves on
    ASSERT_TRUE(readable(fd, 5000));
    EXPECT_NE(get_buf(&info, &h), MI_SUCCESS);  // the second call fails...
    EXPECT_TRUE(readable(fd, 0));               // ...and leaves the frame queued
    ASSERT_EQ(get_buf(&info, &h), MI_SUCCESS);
    EXPECT_EQ(frame_index(info), 1);
    stop();

    start(3, host::Pace::Lockstep, "stall=1.5@1,getfd_fail");
    ASSERT_EQ(open_port(1, 2), MI_SUCCESS);
    EXPECT_NE(MI_SYS_GetFd(&port1, &fd), MI_SUCCESS);
    ASSERT_TRUE(wait_for([&] { return get_buf(&info, &h) == MI_SUCCESS; }));
    ASSERT_EQ(MI_SYS_ChnOutputPortPutBuf(h), MI_SUCCESS);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_EQ(get_buf(&info, &h), MI_SYS_ERR(E_MI_ERR_BUF_EMPTY)) << "frame 1 came during the stall";
    ASSERT_TRUE(wait_for([&] { return get_buf(&info, &h) == MI_SUCCESS; }));
    EXPECT_EQ(frame_index(info), 1);
    // MI_SYS_Exit stops a stalled producer promptly (the test's timeout would catch a hang).
}

#if FACEDET_HOST_HAS_OPENCV
// Frames from OpenCV are scaled to the port and converted to NV12: a uniform
// grey gives a uniform luma near it and neutral chroma.
TEST_F(Host, VideoFramesAreScaledAndConvertedToNv12) {
    const std::string video = dir_.file("clip.avi");
    const int greys[] = {40, 200};
    {
        cv::VideoWriter writer(video, cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 25, cv::Size(640, 360));
        ASSERT_TRUE(writer.isOpened());
        for (int g : greys) {
            writer.write(cv::Mat(360, 640, CV_8UC3, cv::Scalar(g, g, g)));
        }
    }
    host::Config cfg;
    cfg.source = video;
    cfg.pace = host::Pace::Lockstep;
    host::use_config_for_next_init(cfg);
    ASSERT_EQ(MI_SYS_Init(), MI_SUCCESS);
    running_ = true;
    ASSERT_EQ(open_port(1, 2), MI_SUCCESS);
    int fd = -1;
    ASSERT_EQ(MI_SYS_GetFd(&port1, &fd), MI_SUCCESS);
    for (int g : greys) {
        MI_SYS_BufInfo_t info;
        MI_SYS_BUF_HANDLE h = 0;
        ASSERT_TRUE(take(fd, &info, &h));
        const cv::Mat y(kH, kW, CV_8UC1, info.stFrameData.pVirAddr[0]);
        const cv::Mat uv(kH / 2, kW, CV_8UC1, info.stFrameData.pVirAddr[1]);
        EXPECT_NEAR(cv::mean(y)[0], g, 25.0) << g;
        EXPECT_NEAR(cv::mean(uv)[0], 128.0, 8.0) << g;
        double lo = 0, hi = 0;
        cv::minMaxLoc(y, &lo, &hi);
        EXPECT_LT(hi - lo, 12.0) << "a uniform picture stays uniform";
        ASSERT_EQ(MI_SYS_ChnOutputPortPutBuf(h), MI_SUCCESS);
    }
    EXPECT_FALSE(readable(fd, 300));
}
#else
TEST(HostNoOpenCv, OnlyRawSourcesAreOffered) {
    std::string error;
    EXPECT_EQ(host::open_frame_source("/dev/null", &error), nullptr);
    EXPECT_NE(error.find("raw NV12"), std::string::npos) << error;
}
#endif
