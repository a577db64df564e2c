// The host platform's emulated media pipeline: configuration, VPE channel and
// port rules, queues and depths, descriptors, frame content, faults and the
// frame log.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "frame_source.h"
#include "host_platform.h"
#include "mi_rgn.h"
#include "mi_sys.h"
#include "mi_venc.h"
#include "mi_vif.h"
#include "mi_vpe.h"
#include "output_capture.h"
#include "temp_dir.h"

#if FACEDET_HOST_HAS_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/videoio.hpp>
#endif

namespace {

constexpr int kW = 416;
constexpr int kH = 234;
constexpr size_t kFrameBytes = kW * kH * 3 / 2;
const MI_SYS_ChnPort_t kPort1 = {E_MI_MODULE_ID_VPE, 0, 0, 1};

// Frame k carries k in its first two bytes and a pattern that differs per frame.
uint8_t pattern_byte(int k, size_t i) {
    if (i < 2) {
        return static_cast<uint8_t>(i == 0 ? k & 0xFF : k >> 8);
    }
    return static_cast<uint8_t>(i * 7 + static_cast<size_t>(k) * 31 + (i >> 9));
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
    for (size_t i = 0; i < kW * kH; ++i) {
        if (y[i] != pattern_byte(k, i)) {
            return false;
        }
    }
    for (size_t i = 0; i < kW * kH / 2; ++i) {
        if (uv[i] != pattern_byte(k, kW * kH + i)) {
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
bool wait_for(Pred pred, int timeoutMs = 5000) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
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

// One initialised platform for a test; quiet about a missing source.
class Session {
  public:
    explicit Session(const host::Config &cfg) {
        host::use_config_for_next_init(cfg);
        OutputCapture quiet(2);
        init_ = MI_SYS_Init();
        messages_ = quiet.finish();
    }
    ~Session() { MI_SYS_Exit(); }
    MI_S32 init() const { return init_; }
    const std::string &messages() const { return messages_; }

  private:
    MI_S32 init_;
    std::string messages_;
};

MI_S32 open_port(int port, int w, int h, MI_U32 user, MI_U32 queue) {
    MI_VPE_PortMode_t mode{static_cast<MI_U16>(w), static_cast<MI_U16>(h),
                           E_MI_SYS_PIXEL_FRAME_YUV_SEMIPLANAR_420, E_MI_SYS_COMPRESS_MODE_NONE};
    MI_SYS_ChnPort_t cp = {E_MI_MODULE_ID_VPE, 0, 0, static_cast<MI_U32>(port)};
    MI_S32 r = MI_VPE_SetPortMode(0, port, &mode);
    if (r == MI_SUCCESS) {
        r = MI_SYS_SetChnOutputPortDepth(&cp, user, queue);
    }
    return r == MI_SUCCESS ? MI_VPE_EnablePort(0, port) : r;
}

host::Config clip_config(const std::string &path, host::Pace pace) {
    host::Config cfg;
    cfg.source = path;
    cfg.pace = pace;
    return cfg;
}

// Takes the next frame of port 1, waiting for it through a descriptor.
bool take(int fd, MI_SYS_BufInfo_t *info, MI_SYS_BUF_HANDLE *h) {
    return readable(fd, 5000) &&
           MI_SYS_ChnOutputPortGetBuf(const_cast<MI_SYS_ChnPort_t *>(&kPort1), info, h) == 0;
}

MI_S32 get_buf(MI_SYS_BufInfo_t *info, MI_SYS_BUF_HANDLE *h) {
    return MI_SYS_ChnOutputPortGetBuf(const_cast<MI_SYS_ChnPort_t *>(&kPort1), info, h);
}

MI_S32 get_fd(int *fd) {
    return MI_SYS_GetFd(const_cast<MI_SYS_ChnPort_t *>(&kPort1), fd);
}

}  // namespace

// ---- configuration ----

TEST(HostConfig, ParsesEveryFault) {
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
    EXPECT_TRUE(f.getfdFail);
    EXPECT_TRUE(f.portmodeFail);
    EXPECT_EQ(static_cast<uint32_t>(f.portmodeFailCode), 0xA0074003u);
    EXPECT_DOUBLE_EQ(f.stallSeconds, 1.5);
    EXPECT_EQ(f.stallAtFrame, 10u);

    ASSERT_TRUE(host::parse_faults("stall=0.25,portmode_fail=-1", &f, &error));
    EXPECT_DOUBLE_EQ(f.stallSeconds, 0.25);
    EXPECT_EQ(f.stallAtFrame, 0u);
    EXPECT_EQ(f.portmodeFailCode, -1);
    EXPECT_FALSE(f.getfdFail);  // a new parse starts from no faults

    ASSERT_TRUE(host::parse_faults("", &f, &error));
    EXPECT_FALSE(f.portmodeFail);
}

TEST(HostConfig, RefusesBadFaultEntriesByName) {
    const char *bad[] = {"bogus=1",        "getbuf_fail",        "getbuf_fail=0",
                         "getbuf_fail=-2", "getbuf_fail=3x",     "stall=abc",
                         "stall=1@x",      "stall=-1",           "stall=",
                         "portmode_fail",  "portmode_fail=0",    "portmode_fail=0x",
                         "getfd_fail=2",   "putbuf_fail_every=", "portmode_fail=0x123456789"};
    for (const char *entry : bad) {
        host::Faults f;
        std::string error;
        EXPECT_FALSE(host::parse_faults(std::string("getfd_fail,") + entry, &f, &error)) << entry;
        EXPECT_NE(error.find(std::string("'") + entry + "'"), std::string::npos) << error;
    }
}

TEST(HostConfig, ReadsTheEnvironment) {
    struct Env {
        ~Env() {
            for (const char *n : {"FACEDET_SOURCE", "FACEDET_PACE", "FACEDET_LOOP", "FACEDET_EXIT_AT_END",
                                  "FACEDET_FRAME_LOG", "FACEDET_FAULTS"}) {
                unsetenv(n);
            }
        }
    } restore;
    setenv("FACEDET_SOURCE", "/data/clip.nv12", 1);
    setenv("FACEDET_PACE", "lockstep", 1);
    setenv("FACEDET_LOOP", "1", 1);
    setenv("FACEDET_EXIT_AT_END", "1", 1);
    setenv("FACEDET_FRAME_LOG", "/tmp/frames.log", 1);
    setenv("FACEDET_FAULTS", "getbuf_fail=2", 1);
    host::Config c;
    std::string error;
    ASSERT_TRUE(host::config_from_env(&c, &error)) << error;
    EXPECT_EQ(c.source, "/data/clip.nv12");
    EXPECT_EQ(c.pace, host::Pace::Lockstep);
    EXPECT_TRUE(c.loop);
    EXPECT_TRUE(c.exitAtEnd);
    EXPECT_EQ(c.frameLogPath, "/tmp/frames.log");
    EXPECT_EQ(c.faults.getbufFailAt, 2u);

    setenv("FACEDET_PACE", "fast", 1);
    EXPECT_FALSE(host::config_from_env(&c, &error));
    EXPECT_NE(error.find("'fast'"), std::string::npos) << error;
}

// ---- set-up without a source, and before MI_SYS_Init ----

TEST(HostNoSource, InitSucceedsButChannelZeroIsMissing) {
    Session s(host::Config{});
    ASSERT_EQ(s.init(), MI_SUCCESS);
    EXPECT_EQ(s.messages(), "host platform: FACEDET_SOURCE is not set: VPE channel 0 has no frame source\n");
    MI_VPE_PortMode_t mode{};
    EXPECT_EQ(MI_VPE_GetPortMode(0, 1, &mode), MI_VPE_ERR(E_MI_ERR_UNEXIST));
    EXPECT_NE(MI_VPE_EnablePort(0, 1), MI_SUCCESS);
    int fd = -1;
    EXPECT_NE(get_fd(&fd), MI_SUCCESS);
    EXPECT_EQ(host::pipeline_stats().sourceFrames, 0u);
}

TEST(HostNoSource, EnvironmentProblemsAreOneLineNamingTheCause) {
    struct Case {
        const char *source, *pace, *faults, *expected;
    } cases[] = {
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
        const MI_S32 init = MI_SYS_Init();
        const std::string text = capture.finish();
        MI_VPE_PortMode_t mode{};
        EXPECT_EQ(init, MI_SUCCESS);
        EXPECT_NE(MI_VPE_GetPortMode(0, 1, &mode), MI_SUCCESS);
        EXPECT_EQ(MI_SYS_Exit(), MI_SUCCESS);
        EXPECT_NE(text.find(c.expected), std::string::npos) << text;
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
    }
    unsetenv("FACEDET_SOURCE");
    unsetenv("FACEDET_PACE");
    unsetenv("FACEDET_FAULTS");
}

TEST(HostNoSource, CallsBeforeInitAreRefusedExceptTheClock) {
    MI_VPE_PortMode_t mode{};
    MI_SYS_BufInfo_t info;
    MI_SYS_BUF_HANDLE h = 0;
    int fd = -1;
    MI_RGN_PaletteTable_t palette{};
    EXPECT_EQ(MI_VPE_GetPortMode(0, 1, &mode), MI_VPE_ERR(E_MI_ERR_NOT_INIT));
    EXPECT_EQ(get_buf(&info, &h), MI_SYS_ERR(E_MI_ERR_NOT_INIT));
    EXPECT_EQ(get_fd(&fd), MI_SYS_ERR(E_MI_ERR_NOT_INIT));
    EXPECT_EQ(MI_SYS_ChnOutputPortPutBuf(1), MI_SYS_ERR(E_MI_ERR_NOT_INIT));
    EXPECT_EQ(MI_SYS_Exit(), MI_SYS_ERR(E_MI_ERR_NOT_INIT));
    EXPECT_EQ(MI_RGN_Init(&palette), MI_RGN_ERR(E_MI_ERR_NOT_INIT));
    EXPECT_EQ(MI_VENC_DestroyChn(0), MI_VENC_ERR(E_MI_ERR_NOT_INIT));

    MI_U64 pts = 0;
    ASSERT_EQ(MI_SYS_GetCurPts(&pts), MI_SUCCESS);
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    const MI_U64 now = static_cast<MI_U64>(ts.tv_sec) * 1000000u + ts.tv_nsec / 1000;
    EXPECT_LE(pts, now);
    EXPECT_GT(pts + 10000000u, now);  // the same clock, not merely some counter
}

// ---- channels and ports ----

class HostVpe : public ::testing::Test {
  protected:
    void SetUp() override {
        write_clip(clip_, 4);
        session_ = std::make_unique<Session>(clip_config(clip_, host::Pace::Lockstep));
        ASSERT_EQ(session_->init(), MI_SUCCESS);
    }
    TempDir dir_;
    std::string clip_ = dir_.file("clip.nv12");
    std::unique_ptr<Session> session_;
};

TEST_F(HostVpe, PortModeIsValidated) {
    MI_VPE_PortMode_t mode{};
    ASSERT_EQ(MI_VPE_GetPortMode(0, 1, &mode), MI_SUCCESS);
    EXPECT_EQ(mode.u16Width, 0);
    EXPECT_EQ(mode.ePixelFormat, E_MI_SYS_PIXEL_FRAME_YUV_SEMIPLANAR_420);
    EXPECT_EQ(MI_VPE_EnablePort(0, 1), MI_VPE_ERR(E_MI_ERR_NOT_CONFIG));  // no size yet

    MI_VPE_PortMode_t bad = {417, 234, E_MI_SYS_PIXEL_FRAME_YUV_SEMIPLANAR_420, E_MI_SYS_COMPRESS_MODE_NONE};
    EXPECT_EQ(MI_VPE_SetPortMode(0, 1, &bad), MI_VPE_ERR(E_MI_ERR_ILLEGAL_PARAM));
    bad = {416, 0, E_MI_SYS_PIXEL_FRAME_YUV_SEMIPLANAR_420, E_MI_SYS_COMPRESS_MODE_NONE};
    EXPECT_EQ(MI_VPE_SetPortMode(0, 1, &bad), MI_VPE_ERR(E_MI_ERR_ILLEGAL_PARAM));
    bad = {416, 234, E_MI_SYS_PIXEL_FRAME_YUV422_YUYV, E_MI_SYS_COMPRESS_MODE_NONE};
    EXPECT_EQ(MI_VPE_SetPortMode(0, 1, &bad), MI_VPE_ERR(E_MI_ERR_NOT_SUPPORT));
    EXPECT_EQ(MI_VPE_SetPortMode(0, 1, nullptr), MI_VPE_ERR(E_MI_ERR_NULL_PTR));
    ASSERT_EQ(MI_VPE_GetPortMode(0, 1, &mode), MI_SUCCESS);
    EXPECT_EQ(mode.u16Width, 0) << "a refused mode must not be stored";

    ASSERT_EQ(open_port(1, kW, kH, 1, 2), MI_SUCCESS);
    ASSERT_EQ(MI_VPE_GetPortMode(0, 1, &mode), MI_SUCCESS);
    EXPECT_EQ(mode.u16Width, kW);
    EXPECT_EQ(mode.u16Height, kH);
    MI_VPE_PortMode_t other = {208, 118, E_MI_SYS_PIXEL_FRAME_YUV_SEMIPLANAR_420,
                               E_MI_SYS_COMPRESS_MODE_NONE};
    EXPECT_EQ(MI_VPE_SetPortMode(0, 1, &other), MI_VPE_ERR(E_MI_ERR_NOT_PERM));  // while enabled

    EXPECT_EQ(MI_VPE_GetPortMode(4, 1, &mode), MI_VPE_ERR(E_MI_ERR_INVALID_CHNID));
    EXPECT_EQ(MI_VPE_GetPortMode(-1, 1, &mode), MI_VPE_ERR(E_MI_ERR_INVALID_CHNID));
    EXPECT_EQ(MI_VPE_GetPortMode(0, 4, &mode), MI_VPE_ERR(E_MI_ERR_ILLEGAL_PARAM));
}

TEST_F(HostVpe, ChannelsOneToThreeAreCreatedOnDemand) {
    MI_VPE_ChannelAttr_t attr{};
    MI_VPE_PortMode_t mode{};
    EXPECT_EQ(MI_VPE_GetPortMode(2, 0, &mode), MI_VPE_ERR(E_MI_ERR_UNEXIST));
    EXPECT_EQ(MI_VPE_CreateChannel(0, &attr), MI_VPE_ERR(E_MI_ERR_EXIST));
    ASSERT_EQ(MI_VPE_CreateChannel(2, &attr), MI_SUCCESS);
    EXPECT_EQ(MI_VPE_CreateChannel(2, &attr), MI_VPE_ERR(E_MI_ERR_EXIST));
    EXPECT_EQ(MI_VPE_StartChannel(2), MI_SUCCESS);
    EXPECT_EQ(MI_VPE_GetPortMode(2, 0, &mode), MI_SUCCESS);
    EXPECT_EQ(MI_VPE_StopChannel(2), MI_SUCCESS);
    EXPECT_EQ(MI_VPE_DestroyChannel(2), MI_SUCCESS);
    EXPECT_EQ(MI_VPE_StartChannel(2), MI_VPE_ERR(E_MI_ERR_UNEXIST));
    EXPECT_EQ(MI_VPE_CreateChannel(4, &attr), MI_VPE_ERR(E_MI_ERR_INVALID_CHNID));
}

TEST_F(HostVpe, DepthNeedsAValidVpePort) {
    MI_SYS_ChnPort_t cp = kPort1;
    cp.u32DevId = 1;
    EXPECT_EQ(MI_SYS_SetChnOutputPortDepth(&cp, 1, 2), MI_SYS_ERR(E_MI_ERR_INVALID_DEVID));
    cp = {E_MI_MODULE_ID_VPE, 0, 3, 1};
    EXPECT_EQ(MI_SYS_SetChnOutputPortDepth(&cp, 1, 2), MI_SYS_ERR(E_MI_ERR_UNEXIST));
    cp = {E_MI_MODULE_ID_VPE, 0, 0, 7};
    EXPECT_NE(MI_SYS_SetChnOutputPortDepth(&cp, 1, 2), MI_SUCCESS);
    cp = {E_MI_MODULE_ID_VIF, 0, 0, 0};
    EXPECT_EQ(MI_SYS_SetChnOutputPortDepth(&cp, 0, 6), MI_SUCCESS);  // accepted, feeds nothing
    EXPECT_EQ(MI_SYS_SetChnOutputPortDepth(nullptr, 1, 2), MI_SYS_ERR(E_MI_ERR_NULL_PTR));
}

// ---- frames ----

TEST(HostFrames, LockstepDeliversEveryFrameInOrderWithItsBytes) {
    TempDir dir;
    const std::string clip = dir.file("clip.yuv"), log = dir.file("frames.log");
    constexpr int kFrames = 6;
    write_clip(clip, kFrames, kFrameBytes / 2);  // the partial frame at the end is ignored
    host::Config cfg = clip_config(clip, host::Pace::Lockstep);
    cfg.frameLogPath = log;
    std::vector<MI_U64> pts;
    {
        Session s(cfg);
        ASSERT_EQ(open_port(1, kW, kH, 1, 2), MI_SUCCESS);
        int fd = -1;
        ASSERT_EQ(get_fd(&fd), MI_SUCCESS);
        for (int k = 0; k < kFrames; ++k) {
            MI_SYS_BufInfo_t info;
            MI_SYS_BUF_HANDLE h = 0;
            ASSERT_TRUE(take(fd, &info, &h)) << "frame " << k;
            const MI_SYS_FrameData_t &f = info.stFrameData;
            EXPECT_EQ(info.eBufType, E_MI_SYS_BUFDATA_FRAME);
            EXPECT_EQ(f.ePixelFormat, E_MI_SYS_PIXEL_FRAME_YUV_SEMIPLANAR_420);
            EXPECT_EQ(f.u16Width, kW);
            EXPECT_EQ(f.u16Height, kH);
            EXPECT_EQ(f.u32Stride[0], static_cast<MI_U32>(kW));
            EXPECT_EQ(f.u32Stride[1], static_cast<MI_U32>(kW));
            EXPECT_EQ(f.u32BufSize, kFrameBytes);
            EXPECT_TRUE(frame_matches(info, k)) << "frame " << k << " came as " << frame_index(info);
            EXPECT_FALSE(readable(fd, 0)) << "nothing is queued while the frame is held";
            pts.push_back(info.u64Pts);
            ASSERT_EQ(MI_SYS_ChnOutputPortPutBuf(h), MI_SUCCESS);
        }
        EXPECT_FALSE(readable(fd, 300));
        MI_SYS_BufInfo_t info;
        MI_SYS_BUF_HANDLE h = 0;
        EXPECT_EQ(get_buf(&info, &h), MI_SYS_ERR(E_MI_ERR_BUF_EMPTY));
        EXPECT_TRUE(host::pipeline_stats().sourceEnded);
        EXPECT_EQ(MI_SYS_CloseFd(fd), MI_SUCCESS);
    }
    const std::vector<std::string> lines = read_lines(log);
    ASSERT_EQ(lines.size(), static_cast<size_t>(kFrames));
    for (int k = 0; k < kFrames; ++k) {
        std::ostringstream expected;
        expected << k << ' ' << pts[k] << " taken 0.1";
        EXPECT_EQ(lines[k], expected.str());
    }
}

TEST(HostFrames, RealtimeQueueKeepsTheNewestFrames) {
    TempDir dir;
    const std::string clip = dir.file("clip.nv12"), log = dir.file("frames.log");
    constexpr int kFrames = 12;
    write_clip(clip, kFrames);
    host::Config cfg = clip_config(clip, host::Pace::Realtime);
    cfg.frameLogPath = log;
    {
        Session s(cfg);
        ASSERT_EQ(open_port(1, kW, kH, 3, 3), MI_SUCCESS);
        ASSERT_TRUE(wait_for([] { return host::pipeline_stats().sourceEnded; }));
        std::vector<MI_SYS_BUF_HANDLE> held;
        for (int k = kFrames - 3; k < kFrames; ++k) {
            MI_SYS_BufInfo_t info;
            MI_SYS_BUF_HANDLE h = 0;
            ASSERT_EQ(get_buf(&info, &h), MI_SUCCESS);
            EXPECT_EQ(frame_index(info), k);
            EXPECT_TRUE(frame_matches(info, k));
            held.push_back(h);
        }
        for (MI_SYS_BUF_HANDLE h : held) {
            EXPECT_EQ(MI_SYS_ChnOutputPortPutBuf(h), MI_SUCCESS);
        }
    }
    const std::vector<std::string> lines = read_lines(log);
    ASSERT_EQ(lines.size(), static_cast<size_t>(kFrames));
    for (int k = 0; k < kFrames; ++k) {
        const std::string fate = k < kFrames - 3 ? " dropped 0.1" : " taken 0.1";
        EXPECT_EQ(lines[k].rfind(std::to_string(k) + " ", 0), 0u) << lines[k];
        EXPECT_NE(lines[k].find(fate), std::string::npos) << lines[k];
    }
}

TEST(HostFrames, UserDepthLimitsHeldFramesWhoseMemoryStaysIntact) {
    TempDir dir;
    const std::string clip = dir.file("clip.nv12");
    write_clip(clip, 10);
    host::Config cfg = clip_config(clip, host::Pace::Realtime);
    cfg.loop = true;
    Session s(cfg);
    ASSERT_EQ(open_port(1, kW, kH, 1, 2), MI_SUCCESS);
    int fd = -1;
    ASSERT_EQ(get_fd(&fd), MI_SUCCESS);
    MI_SYS_BufInfo_t held;
    MI_SYS_BUF_HANDLE heldHandle = 0;
    ASSERT_TRUE(take(fd, &held, &heldHandle));
    const int heldIndex = frame_index(held);
    // Let more frames pass through the queue than it and the pool can hold.
    const uint64_t seen = host::pipeline_stats().sourceFrames;
    ASSERT_TRUE(wait_for([&] { return host::pipeline_stats().sourceFrames >= seen + 6; }));
    ASSERT_TRUE(readable(fd, 5000));
    MI_SYS_BufInfo_t info;
    MI_SYS_BUF_HANDLE h = 0;
    EXPECT_EQ(get_buf(&info, &h), MI_SYS_ERR(E_MI_ERR_NOBUF));
    EXPECT_TRUE(frame_matches(held, heldIndex)) << "a held frame was overwritten";

    ASSERT_EQ(MI_SYS_ChnOutputPortPutBuf(heldHandle), MI_SUCCESS);
    EXPECT_EQ(MI_SYS_ChnOutputPortPutBuf(heldHandle), MI_SYS_ERR(E_MI_ERR_ILLEGAL_PARAM));  // twice
    EXPECT_EQ(MI_SYS_ChnOutputPortPutBuf(heldHandle + 1000), MI_SYS_ERR(E_MI_ERR_ILLEGAL_PARAM));
    ASSERT_TRUE(take(fd, &info, &h));
    EXPECT_NE(h, heldHandle);
    EXPECT_EQ(MI_SYS_ChnOutputPortPutBuf(h), MI_SUCCESS);
    EXPECT_EQ(MI_SYS_CloseFd(fd), MI_SUCCESS);
}

TEST(HostFrames, DescriptorsTrackTheQueueAndDisablingDropsIt) {
    TempDir dir;
    const std::string clip = dir.file("clip.nv12"), log = dir.file("frames.log");
    write_clip(clip, 3);
    host::Config cfg = clip_config(clip, host::Pace::Lockstep);
    cfg.frameLogPath = log;
    {
        Session s(cfg);
        int fd = -1;
        EXPECT_EQ(get_fd(&fd), MI_SYS_ERR(E_MI_ERR_NOT_ENABLE));
        ASSERT_EQ(open_port(1, kW, kH, 0, 5), MI_SUCCESS);
        int a = -1, b = -1;
        ASSERT_EQ(get_fd(&a), MI_SUCCESS);
        ASSERT_EQ(get_fd(&b), MI_SUCCESS);
        EXPECT_NE(a, b);
        EXPECT_FALSE(readable(a, 300)) << "user depth 0 gets no frames";

        ASSERT_EQ(MI_SYS_SetChnOutputPortDepth(const_cast<MI_SYS_ChnPort_t *>(&kPort1), 1, 2), MI_SUCCESS);
        EXPECT_TRUE(readable(a, 5000));
        EXPECT_TRUE(readable(b, 5000));  // signalled one after the other, not atomically
        EXPECT_TRUE(readable(a, 0)) << "polling must not consume the readiness";
        ASSERT_EQ(MI_VPE_DisablePort(0, 1), MI_SUCCESS);
        EXPECT_FALSE(readable(a, 0));
        EXPECT_FALSE(readable(b, 0));
        MI_SYS_BufInfo_t info;
        MI_SYS_BUF_HANDLE h = 0;
        EXPECT_EQ(get_buf(&info, &h), MI_SYS_ERR(E_MI_ERR_NOT_ENABLE));

        EXPECT_EQ(MI_SYS_CloseFd(a), MI_SUCCESS);
        EXPECT_EQ(MI_SYS_CloseFd(a), MI_SYS_ERR(E_MI_ERR_ILLEGAL_PARAM));
        EXPECT_EQ(MI_SYS_CloseFd(0), MI_SYS_ERR(E_MI_ERR_ILLEGAL_PARAM));
        EXPECT_EQ(fcntl(0, F_GETFD), 0) << "a descriptor the platform did not make must stay open";
        EXPECT_EQ(MI_SYS_CloseFd(b), MI_SUCCESS);
    }
    const std::vector<std::string> lines = read_lines(log);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find(" dropped 0.1"), std::string::npos) << lines[0];
    EXPECT_EQ(lines[0].rfind("0 ", 0), 0u);
}

TEST(HostFrames, LoopRestartsTheClipAndKeepsCounting) {
    TempDir dir;
    const std::string clip = dir.file("clip.nv12");
    write_clip(clip, 3);
    host::Config cfg = clip_config(clip, host::Pace::Lockstep);
    cfg.loop = true;
    Session s(cfg);
    ASSERT_EQ(open_port(1, kW, kH, 1, 1), MI_SUCCESS);
    int fd = -1;
    ASSERT_EQ(get_fd(&fd), MI_SUCCESS);
    for (int n = 0; n < 7; ++n) {
        MI_SYS_BufInfo_t info;
        MI_SYS_BUF_HANDLE h = 0;
        ASSERT_TRUE(take(fd, &info, &h));
        EXPECT_TRUE(frame_matches(info, n % 3)) << n;
        ASSERT_EQ(MI_SYS_ChnOutputPortPutBuf(h), MI_SUCCESS);
    }
    EXPECT_GE(host::pipeline_stats().sourceFrames, 7u);
    EXPECT_FALSE(host::pipeline_stats().sourceEnded);
    MI_SYS_CloseFd(fd);
}

TEST(HostFrames, ScalesARawFrameForASecondPortOfAnotherSize) {
    std::vector<uint8_t> src(8 * 4 * 3 / 2), dst(4 * 2 * 3 / 2);
    for (size_t i = 0; i < src.size(); ++i) {
        src[i] = static_cast<uint8_t>(i);
    }
    host::scale_nv12_nearest(src.data(), 8, 4, dst.data(), 4, 2);
    // Every second luma pixel of every second row; U,V pairs stay together.
    const std::vector<uint8_t> expected = {0, 2, 4, 6, 16, 18, 20, 22, 32, 33, 36, 37};
    EXPECT_EQ(dst, expected);
}

namespace {
std::atomic<int> g_sigterms{0};
void on_sigterm(int) {
    g_sigterms.fetch_add(1);
}
}  // namespace

TEST(HostFrames, ExitAtEndRaisesSigtermOnceAfterTheLastFrameIsBack) {
    struct sigaction act {
    }, old{};
    act.sa_handler = on_sigterm;
    sigemptyset(&act.sa_mask);
    ASSERT_EQ(sigaction(SIGTERM, &act, &old), 0);
    g_sigterms = 0;
    {
        TempDir dir;
        const std::string clip = dir.file("clip.nv12");
        write_clip(clip, 3);
        // Realtime: the clip ends while its frames still wait in the queue.
        host::Config cfg = clip_config(clip, host::Pace::Realtime);
        cfg.exitAtEnd = true;
        Session s(cfg);
        ASSERT_EQ(open_port(1, kW, kH, 1, 3), MI_SUCCESS);
        ASSERT_TRUE(wait_for([] { return host::pipeline_stats().sourceEnded; }));
        MI_SYS_BUF_HANDLE last = 0;
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(g_sigterms.load(), 0) << "raised with frames still queued";
            MI_SYS_BufInfo_t info;
            ASSERT_EQ(get_buf(&info, &last), MI_SUCCESS);
            EXPECT_EQ(frame_index(info), k);
            if (k < 2) {
                ASSERT_EQ(MI_SYS_ChnOutputPortPutBuf(last), MI_SUCCESS);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        EXPECT_EQ(g_sigterms.load(), 0) << "raised while the last frame is still held";
        ASSERT_EQ(MI_SYS_ChnOutputPortPutBuf(last), MI_SUCCESS);
        EXPECT_TRUE(wait_for([] { return g_sigterms.load() > 0; }));
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        EXPECT_EQ(g_sigterms.load(), 1);
    }
    sigaction(SIGTERM, &old, nullptr);
}

// ---- faults ----

TEST(HostFaults, GetBufAndPutBufFailuresLeaveThePipelineRunning) {
    TempDir dir;
    const std::string clip = dir.file("clip.nv12");
    write_clip(clip, 4);
    host::Config cfg = clip_config(clip, host::Pace::Lockstep);
    std::string error;
    ASSERT_TRUE(host::parse_faults("getbuf_fail=2,putbuf_fail_every=1", &cfg.faults, &error)) << error;
    Session s(cfg);
    ASSERT_EQ(open_port(1, kW, kH, 1, 2), MI_SUCCESS);
    int fd = -1;
    ASSERT_EQ(get_fd(&fd), MI_SUCCESS);
    MI_SYS_BufInfo_t info;
    MI_SYS_BUF_HANDLE h = 0;
    ASSERT_TRUE(take(fd, &info, &h));
    EXPECT_EQ(frame_index(info), 0);
    // A failed release still gives the buffer back: lockstep moves on.
    EXPECT_NE(MI_SYS_ChnOutputPortPutBuf(h), MI_SUCCESS);
    ASSERT_TRUE(readable(fd, 5000));
    EXPECT_NE(get_buf(&info, &h), MI_SUCCESS);  // the second call fails...
    EXPECT_TRUE(readable(fd, 0));               // ...and leaves the frame queued
    ASSERT_EQ(get_buf(&info, &h), MI_SUCCESS);
    EXPECT_EQ(frame_index(info), 1);
    MI_SYS_ChnOutputPortPutBuf(h);
    MI_SYS_CloseFd(fd);
}

TEST(HostFaults, PortModeAndGetFdFaults) {
    TempDir dir;
    const std::string clip = dir.file("clip.nv12");
    write_clip(clip, 1);
    host::Config cfg = clip_config(clip, host::Pace::Lockstep);
    std::string error;
    ASSERT_TRUE(host::parse_faults("portmode_fail=0xA0074003,getfd_fail", &cfg.faults, &error)) << error;
    Session s(cfg);
    MI_VPE_PortMode_t mode{};
    EXPECT_EQ(static_cast<uint32_t>(MI_VPE_GetPortMode(0, 1, &mode)), 0xA0074003u);
    EXPECT_EQ(MI_VPE_GetPortMode(0, 1, &mode), MI_SUCCESS);  // only the first call
    ASSERT_EQ(open_port(1, kW, kH, 1, 2), MI_SUCCESS);
    int fd = -1;
    EXPECT_NE(get_fd(&fd), MI_SUCCESS);
}

TEST(HostFaults, StallDelaysTheChosenFrame) {
    TempDir dir;
    const std::string clip = dir.file("clip.nv12");
    write_clip(clip, 3);
    host::Config cfg = clip_config(clip, host::Pace::Lockstep);
    std::string error;
    ASSERT_TRUE(host::parse_faults("stall=1.5@1", &cfg.faults, &error)) << error;
    Session s(cfg);
    ASSERT_EQ(open_port(1, kW, kH, 1, 2), MI_SUCCESS);
    int fd = -1;
    ASSERT_EQ(get_fd(&fd), MI_SUCCESS);
    MI_SYS_BufInfo_t info;
    MI_SYS_BUF_HANDLE h = 0;
    ASSERT_TRUE(take(fd, &info, &h));
    ASSERT_EQ(MI_SYS_ChnOutputPortPutBuf(h), MI_SUCCESS);
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    timeval timeout{0, 500000};
    EXPECT_EQ(select(fd + 1, &set, nullptr, nullptr, &timeout), 0) << "frame 1 came during the stall";
    ASSERT_TRUE(take(fd, &info, &h));
    EXPECT_EQ(frame_index(info), 1);
    MI_SYS_ChnOutputPortPutBuf(h);
    MI_SYS_CloseFd(fd);
}

// ---- life cycle and the other modules ----

TEST(HostLifecycle, InitExitCyclesStartAfresh) {
    TempDir dir;
    const std::string clip = dir.file("clip.nv12"), log = dir.file("frames.log");
    write_clip(clip, 2);
    for (int cycle = 0; cycle < 10; ++cycle) {
        host::Config cfg = clip_config(clip, host::Pace::Lockstep);
        cfg.frameLogPath = log;
        host::use_config_for_next_init(cfg);
        ASSERT_EQ(MI_SYS_Init(), MI_SUCCESS);
        EXPECT_EQ(MI_SYS_Init(), MI_SYS_ERR(E_MI_ERR_EXIST));
        ASSERT_EQ(open_port(1, kW, kH, 1, 2), MI_SUCCESS);
        int fd = -1;
        ASSERT_EQ(get_fd(&fd), MI_SUCCESS);
        ASSERT_TRUE(readable(fd, 5000));
        MI_SYS_BufInfo_t info;
        MI_SYS_BUF_HANDLE h = 0;
        if (cycle % 2 == 0) {  // exit holding a frame, or with one still queued
            ASSERT_EQ(get_buf(&info, &h), MI_SUCCESS);
            EXPECT_EQ(frame_index(info), 0) << "each cycle plays the clip from its start";
        }
        ASSERT_EQ(MI_SYS_Exit(), MI_SUCCESS);
        EXPECT_EQ(fcntl(fd, F_GETFD), -1) << "MI_SYS_Exit closes the descriptors";
        const std::vector<std::string> lines = read_lines(log);
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_NE(lines[0].find(cycle % 2 == 0 ? " taken " : " dropped "), std::string::npos) << lines[0];
    }
}

TEST(HostLifecycle, ExitStopsAStalledProducerPromptly) {
    TempDir dir;
    const std::string clip = dir.file("clip.nv12");
    write_clip(clip, 2);
    host::Config cfg = clip_config(clip, host::Pace::Realtime);
    std::string error;
    ASSERT_TRUE(host::parse_faults("stall=60", &cfg.faults, &error)) << error;
    host::use_config_for_next_init(cfg);
    ASSERT_EQ(MI_SYS_Init(), MI_SUCCESS);
    ASSERT_EQ(open_port(1, kW, kH, 1, 2), MI_SUCCESS);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(MI_SYS_Exit(), MI_SUCCESS);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST(HostLifecycle, ConsumerAndControlThreadsRaceSafely) {
    TempDir dir;
    const std::string clip = dir.file("clip.nv12");
    write_clip(clip, 5);
    host::Config cfg = clip_config(clip, host::Pace::Realtime);
    cfg.loop = true;
    host::use_config_for_next_init(cfg);
    ASSERT_EQ(MI_SYS_Init(), MI_SUCCESS);
    ASSERT_EQ(open_port(1, kW, kH, 1, 2), MI_SUCCESS);
    std::atomic<bool> done{false};
    std::atomic<int> taken{0};
    std::thread consumer([&] {
        while (!done) {
            MI_SYS_BufInfo_t info;
            MI_SYS_BUF_HANDLE h = 0;
            if (get_buf(&info, &h) == MI_SUCCESS) {
                // Reads the whole frame so that a concurrent writer would be caught.
                if (frame_matches(info, frame_index(info))) {
                    taken.fetch_add(1);
                }
                MI_SYS_ChnOutputPortPutBuf(h);
            } else {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        }
    });
    for (int i = 0; i < 20; ++i) {
        MI_VPE_DisablePort(0, 1);
        MI_VPE_EnablePort(0, 1);
        MI_SYS_SetChnOutputPortDepth(const_cast<MI_SYS_ChnPort_t *>(&kPort1), 1, 1 + i % 3);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_TRUE(wait_for([&] { return taken.load() > 3; }));
    done = true;
    consumer.join();
    EXPECT_EQ(MI_SYS_Exit(), MI_SUCCESS);
}

TEST(HostModules, RgnKeepsThePaletteUntilDeInit) {
    Session s(host::Config{});
    MI_RGN_PaletteTable_t palette{};
    for (int i = 0; i < MI_RGN_MAX_PALETTE_TABLE_NUM; ++i) {
        palette.astElement[i] = {static_cast<MI_U8>(i), static_cast<MI_U8>(255 - i), 7,
                                 static_cast<MI_U8>(i / 2)};
    }
    EXPECT_EQ(MI_RGN_Init(nullptr), MI_RGN_ERR(E_MI_ERR_NULL_PTR));
    ASSERT_EQ(MI_RGN_Init(&palette), MI_SUCCESS);
    palette.astElement[5].u8Red = 0;  // the platform keeps its own copy
    EXPECT_NE(MI_RGN_Init(&palette), MI_SUCCESS);
    MI_RGN_PaletteTable_t kept{};
    ASSERT_TRUE(host::rgn_palette(&kept));
    EXPECT_EQ(kept.astElement[5].u8Red, 250);
    EXPECT_EQ(kept.astElement[200].u8Alpha, 200);
    EXPECT_EQ(kept.astElement[200].u8Blue, 100);
    ASSERT_EQ(MI_RGN_DeInit(), MI_SUCCESS);
    EXPECT_FALSE(host::rgn_palette(&kept));
    EXPECT_NE(MI_RGN_DeInit(), MI_SUCCESS);
}

TEST(HostModules, VifAndVencCheckTheirArguments) {
    Session s(host::Config{});
    MI_VIF_DevAttr_t dev{};
    MI_VIF_ChnPortAttr_t port{};
    MI_VENC_ChnAttr_t venc{};
    EXPECT_EQ(MI_VIF_SetDevAttr(0, &dev), MI_SUCCESS);
    EXPECT_EQ(MI_VIF_SetDevAttr(0, nullptr), MI_VIF_ERR(E_MI_ERR_NULL_PTR));
    EXPECT_EQ(MI_VIF_EnableDev(99), MI_VIF_ERR(E_MI_ERR_INVALID_DEVID));
    EXPECT_EQ(MI_VIF_SetChnPortAttr(0, 0, &port), MI_SUCCESS);
    EXPECT_EQ(MI_VIF_EnableChnPort(-1, 0), MI_VIF_ERR(E_MI_ERR_INVALID_CHNID));
    EXPECT_EQ(MI_VENC_CreateChn(0, nullptr), MI_VENC_ERR(E_MI_ERR_NULL_PTR));
    ASSERT_EQ(MI_VENC_CreateChn(0, &venc), MI_SUCCESS);
    EXPECT_EQ(MI_VENC_CreateChn(0, &venc), MI_VENC_ERR(E_MI_ERR_EXIST));
    EXPECT_EQ(MI_VENC_StartRecvPic(1), MI_VENC_ERR(E_MI_ERR_UNEXIST));
    EXPECT_EQ(MI_VENC_CreateChn(64, &venc), MI_VENC_ERR(E_MI_ERR_INVALID_CHNID));
}

#if FACEDET_HOST_HAS_OPENCV
// Frames from OpenCV are scaled to the port and converted to NV12: a uniform
// grey gives a uniform luma near it and neutral chroma.
TEST(HostOpenCv, VideoFramesAreScaledAndConvertedToNv12) {
    TempDir dir;
    const std::string video = dir.file("clip.avi");
    const int greys[] = {40, 200};
    {
        cv::VideoWriter writer(video, cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 25, cv::Size(640, 360));
        ASSERT_TRUE(writer.isOpened());
        for (int g : greys) {
            writer.write(cv::Mat(360, 640, CV_8UC3, cv::Scalar(g, g, g)));
        }
    }
    Session s(clip_config(video, host::Pace::Lockstep));
    ASSERT_EQ(open_port(1, kW, kH, 1, 2), MI_SUCCESS);
    int fd = -1;
    ASSERT_EQ(get_fd(&fd), MI_SUCCESS);
    for (int g : greys) {
        MI_SYS_BufInfo_t info;
        MI_SYS_BUF_HANDLE h = 0;
        ASSERT_TRUE(take(fd, &info, &h));
        EXPECT_EQ(info.stFrameData.u16Width, kW);
        EXPECT_EQ(info.stFrameData.u16Height, kH);
        const cv::Mat y(kH, kW, CV_8UC1, info.stFrameData.pVirAddr[0]);
        const cv::Mat uv(kH / 2, kW, CV_8UC1, info.stFrameData.pVirAddr[1]);
        EXPECT_NEAR(cv::mean(y)[0], g, 25.0) << "grey " << g;
        EXPECT_NEAR(cv::mean(uv)[0], 128.0, 8.0) << "grey " << g;
        double lo = 0, hi = 0;
        cv::minMaxLoc(y, &lo, &hi);
        EXPECT_LT(hi - lo, 12.0) << "a uniform picture stays uniform";
        ASSERT_EQ(MI_SYS_ChnOutputPortPutBuf(h), MI_SUCCESS);
    }
    EXPECT_FALSE(readable(fd, 300));
    MI_SYS_CloseFd(fd);
}

#else
TEST(HostNoOpenCv, OnlyRawSourcesAreOffered) {
    std::string error;
    EXPECT_EQ(host::open_frame_source("/dev/null", &error), nullptr);
    EXPECT_NE(error.find("raw NV12"), std::string::npos) << error;
}
#endif
