// The host platform's emulated media pipeline (frames delivered in order
// through the port's descriptor, queue rules, the frame log, scaling for a port
// of another size, the camera's pace and its clock) and the daemon's wrappers'
// lines and results over it, which its own runs do not print: a refused port,
// the system's start and end.
#include <poll.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "frame_source.h"
#include "frame_tap.h"
#include "host_platform.h"
#include "pace_clock.h"
#include "media/qmt_video_stream.h"
#include "media/st_sys.h"
#include "media/st_venc.h"
#include "media/st_vpe.h"
#include "mi_rgn.h"
#include "mi_sys.h"
#include "mi_vpe.h"
#include "output_capture.h"
#include "qmt_rgn_api/qmt_rgn_api.h"
#include "raw_clip.h"
#include "temp_dir.h"

namespace {

constexpr int kW = 416, kH = 234;
constexpr size_t kFrameBytes = kW * kH * 3 / 2;
MI_SYS_ChnPort_t port1 = {E_MI_MODULE_ID_VPE, 0, 0, 1};

bool readable(int fd, int timeoutMs) {
    pollfd p{fd, POLLIN, 0};
    return poll(&p, 1, timeoutMs) == 1 && (p.revents & POLLIN);
}

// `frames` frames at `fps`; the luma of frame i is i.
class CountingSource final : public host::FrameSource {
  public:
    CountingSource(double fps, int frames) : fps_(fps), frames_(frames) {}
    double fps() const override { return fps_; }
    bool next(int, int) override { return ++current_ < frames_; }
    void render(int width, int height, uint8_t *dst) override {
        memset(dst, current_, static_cast<size_t>(width) * height);
        memset(dst + width * height, 128, static_cast<size_t>(width) * height / 2);
    }
    bool rewind() override { return false; }

  private:
    double fps_;
    int frames_;
    int current_ = -1;
};

struct CameraPaceRun {
    std::vector<int> taken;                  // source frames in the order taken
    std::vector<MI_U64> firstAnalysisReads;  // the clock reads of the first analysed frame
};

// Takes frames from a camera-pace port as the frame loop does: nine warm-up
// frames with one clock read each, then analysed frames with six.
CameraPaceRun run_camera_pace(double fps, double costMs, MI_U32 queueDepth, int frames) {
    host::Config cfg;
    cfg.pace = host::Pace::Camera;
    cfg.frameCostMs = costMs;
    host::Pipeline pipeline(cfg, std::make_unique<CountingSource>(fps, frames), nullptr);
    MI_VPE_PortMode_t mode{kW, kH, E_MI_SYS_PIXEL_FRAME_YUV_SEMIPLANAR_420, E_MI_SYS_COMPRESS_MODE_NONE};
    MI_S32 fd = -1;
    CameraPaceRun run;
    if (pipeline.set_port_mode(0, 1, mode) != 0 || pipeline.set_depth(port1, 1, queueDepth) != 0 ||
        pipeline.enable_port(0, 1) != 0 || pipeline.get_fd(port1, &fd) != 0) {
        ADD_FAILURE() << "port set-up refused";
        return run;
    }
    for (int waited = 0; waited < 5000; waited += 10) {
        if (!readable(fd, 10)) {
            if (pipeline.stats().sourceEnded && !readable(fd, 0)) {
                break;  // the clip is over and nothing is left
            }
            continue;
        }
        waited = 0;
        MI_SYS_BufInfo_t info;
        MI_SYS_BUF_HANDLE handle = 0;
        if (pipeline.get_buf(port1, &info, &handle) != 0) {
            ADD_FAILURE() << "a readable port gave no frame after " << run.taken.size();
            break;
        }
        run.taken.push_back(static_cast<const uint8_t *>(info.stFrameData.pVirAddr[0])[0]);
        pipeline.put_buf(handle);
        const bool analysed = run.taken.size() > 9;
        for (int read = 0; read < (analysed ? 6 : 1); ++read) {
            const MI_U64 now = pipeline.clock_read();
            if (run.taken.size() == 10) {
                run.firstAnalysisReads.push_back(now);
            }
        }
    }
    pipeline.close_fd(fd);
    return run;
}

std::vector<int> up_to(int last) {
    std::vector<int> v;
    for (int i = 0; i <= last; ++i) {
        v.push_back(i);
    }
    return v;
}

std::vector<int> operator+(std::vector<int> a, const std::vector<int> &b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

}  // namespace

// While the camera analyses a frame, later ones wait in the port's queue,
// which keeps the newest; the next frame taken is the oldest one kept.
TEST(CameraPace, TakesWhatTheCamerasPortHandsOutAfterEachFrame) {
    const struct {
        double fps, costMs;
        MI_U32 queueDepth;
        int frames;
        std::vector<int> taken;
    } rows[] = {
        // 200 ms at 30 fps: six frames come per analysis; the older of the two newest is taken.
        {30, 200, 2, 40, up_to(9) + std::vector<int>{14, 20, 26, 32, 38, 39}},
        {30, 200, 1, 40, up_to(9) + std::vector<int>{15, 21, 27, 33, 39}},
        // Faster than the frames: nothing is dropped.
        {30, 20, 2, 20, up_to(19)},
        // 250 ms at 10 fps: two or three frames come per analysis.
        {10, 250, 2, 20, up_to(10) + std::vector<int>{13, 15, 18, 19}},
    };
    for (const auto &row : rows) {
        const CameraPaceRun run = run_camera_pace(row.fps, row.costMs, row.queueDepth, row.frames);
        EXPECT_EQ(run.taken, row.taken)
            << row.fps << " fps, " << row.costMs << " ms, depth " << row.queueDepth;
    }
    // The stage reads of the first analysed frame (taken at 0.3 s): the rest at
    // the first, the analysis at the third, so the invoke stage shows it.
    const MI_U64 rest = 2180, all = 200000, taken = 300000;
    EXPECT_EQ(run_camera_pace(30, 200, 2, 12).firstAnalysisReads,
              (std::vector<MI_U64>{taken + rest, taken + rest, taken + all, taken + all, taken + all,
                                   taken + all}));
}

// The frame loop's clock reads tell the platform what it did with each frame:
// one read after a warm-up frame, three with auto framing stopped, six when
// analysed. Each frame is charged its cost; the analysis lands on the invoke
// read (the third) unless the last frame was a stopped one.
TEST(CameraPace, ChargesEachFrameByWhatTheFrameLoopDidWithIt) {
    using namespace host::frame_loop_reads;
    constexpr int W = kWarmUp, S = kStopped, A = kAnalysed, I = kInvoke, late = kStopped + 1;
    const host::FrameCost cost{200000, 2000};
    const struct {
        std::vector<int> readsPerFrame;
        std::vector<MI_U64> costs;
        std::vector<int> analysisRead;  // 0: not charged
    } rows[] = {
        {{W, W, A, A}, {2000, 2000, 200000, 200000}, {0, 0, I, I}},
        // Switched to stopped: the first stopped frame still pays an analysis.
        {{A, S, S, S}, {200000, 200000, 2000, 2000}, {I, I, 0, 0}},
        // Switched back: the first analysed frame is charged a stage late.
        {{S, A, A}, {200000, 200000, 200000}, {I, late, I}},
        {{S, S, A, W, A}, {200000, 2000, 200000, 2000, 200000}, {I, 0, late, 0, I}},
    };
    for (const auto &row : rows) {
        host::CostMeter meter(cost);
        EXPECT_EQ(meter.charge_read(), 0u) << "nothing is charged before the first frame";
        std::vector<MI_U64> costs;
        std::vector<int> analysisRead;
        for (int reads : row.readsPerFrame) {
            meter.frame_taken();
            analysisRead.push_back(0);
            for (int read = 1; read <= reads; ++read) {
                if (meter.charge_read() > cost.restUs) {
                    analysisRead.back() = read;
                }
            }
            costs.push_back(meter.charged());
        }
        EXPECT_EQ(costs, row.costs) << ::testing::PrintToString(row.readsPerFrame);
        EXPECT_EQ(analysisRead, row.analysisRead) << ::testing::PrintToString(row.readsPerFrame);
    }
}

// The daemon's pauses while stopped or off: the camera's time at its pace,
// nothing after a frame in lockstep, the wall clock otherwise.
TEST(CameraPace, PausesCostThePacesClock) {
    const struct {
        host::Pace pace;
        bool takeFirst;
        bool onPaceClock;
        MI_U64 consumerAfter;  // camera pace: the consumer's time after the pause
    } rows[] = {
        {host::Pace::Camera, true, true, 300000 + 2000 + 100000},
        {host::Pace::Camera, false, true, 100000},
        {host::Pace::Lockstep, true, true, 0},
        {host::Pace::Lockstep, false, false, 0},  // off: nothing moves on the clip's timeline
        {host::Pace::Realtime, true, false, 0},
    };
    for (const auto &row : rows) {
        host::PaceClock clock(row.pace, 30, true, host::FrameCost{200000, 2000}, 0);
        if (row.takeFirst) {
            clock.frame_taken(300000, 0);
            clock.read(true, 0);  // the rest
        }
        EXPECT_EQ(clock.pause(100000), row.onPaceClock) << static_cast<int>(row.pace);
        if (row.pace == host::Pace::Camera) {
            EXPECT_EQ(clock.consumer_time(), row.consumerAfter);
        } else {
            EXPECT_FALSE(clock.pause(100000)) << "a second pause without a frame between";
        }
    }
}

TEST(CameraPace, RealtimeHoldsTheNextFrameBackForTheCostAndParsesIt) {
    host::PaceClock realtime(host::Pace::Realtime, 30, true, host::frame_cost_from_ms(100), 1000);
    EXPECT_EQ(realtime.hold_until_us(), 1000u) << "nothing held before the first frame";
    realtime.frame_taken(0, 5000);
    EXPECT_EQ(realtime.read(true, 5100), 5100u) << "realtime reads stay on the wall clock";
    EXPECT_EQ(realtime.hold_until_us(), 5000u + 1090);
    realtime.read(true, 5200);
    realtime.read(false, 5300);  // not the consumer's: no charge
    realtime.read(true, 5400);
    EXPECT_EQ(realtime.hold_until_us(), 5000u + 100000);
    EXPECT_EQ(host::PaceClock(host::Pace::Realtime, 30, false, host::FrameCost{}, 0).hold_until_us(), 0u);

    for (const char *good : {"160", "0.5", " 10000 ", "33.25"}) {
        double ms = 0;
        std::string error;
        EXPECT_TRUE(host::parse_frame_cost(good, &ms, &error)) << good;
    }
    for (const char *bad : {"0", "-5", "abc", "1e3", "10000.5", "inf", "nan", "0x20", "5ms", "."}) {
        double ms = 0;
        std::string error;
        EXPECT_FALSE(host::parse_frame_cost(bad, &ms, &error)) << bad;
        EXPECT_EQ(error, std::string("FACEDET_FRAME_COST_MS '") + bad +
                             "' is not a number of milliseconds above 0 and up to 10000");
    }
}

TEST(Host, LockstepDeliversEveryFrameInOrderAndLogsIt) {
    constexpr int kFrames = 4;
    TempDir dir;
    std::string clip;  // byte i of frame k differs per frame and per byte
    for (size_t i = 0; i < kFrames * kFrameBytes; ++i) {
        clip += static_cast<char>(i * 7 + i / kFrameBytes * 31 + (i % kFrameBytes >> 9));
    }
    write_file(dir.file("clip.nv12"),
               clip + std::string(kFrameBytes / 2, 'x'));  // a partial frame is ignored
    host::Config cfg;
    cfg.source = dir.file("clip.nv12");
    cfg.pace = host::Pace::Lockstep;
    cfg.frameLogPath = dir.file("frames.log");
    cfg.clockPath = dir.file("clock");
    host::use_config_for_next_init(cfg);
    ASSERT_EQ(MI_SYS_Init(), MI_SUCCESS);
    MI_VPE_PortMode_t mode{kW, kH, E_MI_SYS_PIXEL_FRAME_YUV_SEMIPLANAR_420, E_MI_SYS_COMPRESS_MODE_NONE};
    ASSERT_EQ(MI_VPE_SetPortMode(0, 1, &mode), MI_SUCCESS);
    ASSERT_EQ(MI_SYS_SetChnOutputPortDepth(&port1, 1, 2), MI_SUCCESS);
    ASSERT_EQ(MI_VPE_EnablePort(0, 1), MI_SUCCESS);
    int fd = -1;
    ASSERT_EQ(MI_SYS_GetFd(&port1, &fd), MI_SUCCESS);
    std::string expectedLog;
    MI_SYS_BufInfo_t info;
    MI_SYS_BUF_HANDLE h = 0;
    for (int k = 0; k < kFrames; ++k) {
        ASSERT_TRUE(readable(fd, 5000)) << k;
        ASSERT_EQ(MI_SYS_ChnOutputPortGetBuf(&port1, &info, &h), MI_SUCCESS);
        const MI_SYS_FrameData_t &f = info.stFrameData;
        EXPECT_EQ(
            (std::vector<size_t>{f.ePixelFormat, f.u16Width, f.u16Height, f.u32Stride[0], f.u32Stride[1],
                                 f.u32BufSize}),
            (std::vector<size_t>{E_MI_SYS_PIXEL_FRAME_YUV_SEMIPLANAR_420, kW, kH, kW, kW, kFrameBytes}));
        const std::string y(static_cast<const char *>(f.pVirAddr[0]), kW * kH),
            uv(static_cast<const char *>(f.pVirAddr[1]), kW * kH / 2);
        EXPECT_TRUE(y + uv == clip.substr(k * kFrameBytes, kFrameBytes)) << k;
        EXPECT_FALSE(readable(fd, 0)) << "nothing is queued while the frame is held";
        expectedLog += std::to_string(k) + " " + std::to_string(info.u64Pts) + " taken 0.1\n";
        // Lockstep lives on the clip's timeline (30 fps), published for camera_sim.
        EXPECT_EQ(info.u64Pts, (k * 1000000u + 15) / 30) << k;
        MI_U64 now = 0, published = 0;
        ASSERT_EQ(MI_SYS_GetCurPts(&now), MI_SUCCESS);
        EXPECT_TRUE(now >= info.u64Pts && now < info.u64Pts + 33333) << now;
        std::ifstream(dir.file("clock"), std::ios::binary)
            .read(reinterpret_cast<char *>(&published), sizeof published);
        EXPECT_EQ(published, info.u64Pts);
        ASSERT_EQ(MI_SYS_ChnOutputPortPutBuf(h), MI_SUCCESS);
    }
    EXPECT_FALSE(readable(fd, 300)) << "the clip does not loop unless asked to";
    EXPECT_EQ(MI_SYS_ChnOutputPortGetBuf(&port1, &info, &h), MI_SYS_ERR(E_MI_ERR_BUF_EMPTY));
    EXPECT_EQ(MI_SYS_ChnOutputPortPutBuf(h), MI_SYS_ERR(E_MI_ERR_ILLEGAL_PARAM)) << "given back twice";
    EXPECT_EQ(MI_SYS_CloseFd(fd), MI_SUCCESS);
    EXPECT_EQ(MI_SYS_Exit(), MI_SUCCESS);
    EXPECT_EQ(read_file(dir.file("frames.log")), expectedLog);
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

TEST(MediaWrappers, RefusedPortStopsAtTheFirstFailure) {
    TempDir dir;
    write_raw_clip(dir.file("clip.nv12"), 20);
    host::Config config;
    config.source = dir.file("clip.nv12");
    config.pace = host::Pace::Lockstep;
    host::use_config_for_next_init(config);
    ASSERT_EQ(MI_SYS_Init(), MI_SUCCESS);
    OutputCapture capture;
    ST_VPE_PortInfo_T info;
    memset(&info, 0, sizeof info);  // no width: refused
    const MI_S32 ret = ST_Vpe_StartPort(1, &info);
    EXPECT_EQ(QMT_Video_Stream_Stop(), -1);  // not running: silent
    char code[16];
    snprintf(code, sizeof code, "%x", ret);
    EXPECT_EQ(capture.finish(),
              "xxxxxxxxxxx........ST_Vpe_StartPort......0  1....\n[ST_Vpe_StartPort 148]exec function pass\n"
              "[ST_Vpe_StartPort 153]exec function failed, error:" +
                  std::string(code) + "\n");
    EXPECT_NE(ret, MI_SUCCESS);
    MI_SYS_Exit();
    EXPECT_EQ(ST_Sys_GetFrameIntervalMs(0), -1);
}

// The system's start and end print round-bracket lines; binding and the
// encoder channel, which only other products of the platform call, square ones.
TEST(MediaWrappers, SysInitBindEncoderAndExitPrintTheirLinesInOrder) {
    host::use_config_for_next_init(host::Config{});
    OutputCapture err(2);
    OutputCapture capture;
    ASSERT_EQ(ST_Sys_Init(), MI_SUCCESS);
    ST_Sys_BindInfo_T bind{};
    bind.stSrcChnPort = {E_MI_MODULE_ID_VPE, 0, 0, 1};
    bind.stDstChnPort = {E_MI_MODULE_ID_VENC, 0, 2, 0};
    bind.eBindType = E_MI_SYS_BIND_TYPE_FRAME_BASE;
    MI_VENC_ChnAttr_t attr{};
    for (MI_S32 ret : {ST_Sys_Bind(&bind), ST_Sys_UnBind(&bind), ST_Venc_CreateChannel(2, &attr),
                       ST_Venc_StartChannel(2), ST_Venc_StopChannel(2), ST_Venc_DestoryChannel(2)}) {
        EXPECT_EQ(ret, MI_SUCCESS);
    }
    ASSERT_EQ(ST_Sys_Exit(), MI_SUCCESS);
    EXPECT_EQ(ST_Venc_CreateChannel(2, nullptr), -1);
    const std::string out = capture.finish();
    size_t at = 0;
    for (const char *line :
         {"(ST_Sys_Init 23)exec function pass\n", "(ST_Sys_Init 26)exec function pass\n",
          "[INFO]:ST_Sys_Init[27]: \nu8Version:", "(ST_Sys_Init 29)exec function pass\n",
          "[INFO]:ST_Sys_Init[30]: \nu64Pts:0x", "(ST_Sys_Init 33)exec function pass\n",
          "(ST_Sys_Init 36)exec function pass\n", "[ST_Sys_Bind 56]exec function pass\n\nsrc(",
          "-0-0-1)  dst(", "-0-2-0)  1...\n\n", "[ST_Sys_UnBind 68]exec function pass\n",
          "[ST_Venc_CreateChannel 32]exec function pass\n", "[ST_Venc_StartChannel 58]exec function pass\n",
          "[ST_Venc_StopChannel 65]exec function pass\n", "[ST_Venc_DestoryChannel 50]exec function pass\n",
          "[ST_Venc_DestoryChannel 51]exec function pass\n", "(ST_Sys_Exit 43)exec function pass\n",
          "\033[0;31m[ERR]:ST_Venc_CreateChannel[28]: \033[0minvalid param\n"}) {
        at = out.find(line, at);
        ASSERT_NE(at, std::string::npos) << "missing in order: " << line << "\n" << out;
    }
}

// Index 0 stays transparent, the background of every indexed overlay bitmap.
TEST(Overlay, PaletteHoldsRedGreenBlueAndWhiteOverTransparency) {
    host::use_config_for_next_init(host::Config{});
    ASSERT_EQ(MI_SYS_Init(), MI_SUCCESS);
    OutputCapture capture;
    EXPECT_EQ(qmt_rgn_init(), MI_SUCCESS);
    EXPECT_EQ(capture.finish(), "[qmt_rgn_init 569]exec function pass\n");
    MI_RGN_PaletteTable_t palette;
    const bool given = host::rgn_palette(&palette);
    MI_SYS_Exit();
    ASSERT_TRUE(given);
    std::vector<std::vector<int>> colours;  // index, alpha, red, green, blue of every entry not all zero
    for (int i = 0; i < 256; ++i) {
        const MI_RGN_PaletteElement_t &e = palette.astElement[i];
        if (e.u8Alpha || e.u8Red || e.u8Green || e.u8Blue) {
            colours.push_back({i, e.u8Alpha, e.u8Red, e.u8Green, e.u8Blue});
        }
    }
    EXPECT_EQ(colours,
              (std::vector<std::vector<int>>{
                  {1, 255, 255, 0, 0}, {2, 255, 0, 255, 0}, {3, 255, 0, 0, 255}, {255, 255, 255, 255, 255}}));
}

// A watcher sees each newest picture once, whole, and only of the tap's size.
TEST(FrameTap, WatcherSeesTheNewestPictureOnce) {
    TempDir dir;
    const std::string path = dir.file("tap");
    host::FrameTapWriter writer;
    std::string error;
    EXPECT_FALSE(writer.open(dir.file("missing/tap"), &error));
    ASSERT_TRUE(writer.open(path, &error)) << error;
    host::FrameTapReader reader;
    host::TapFrame frame;
    EXPECT_FALSE(reader.read_newer(path, &frame)) << "nothing published yet";
    const std::vector<uint8_t> first(4 * 2 * 3 / 2, 7), wide(6 * 2 * 3 / 2, 8), second(4 * 2 * 3 / 2, 9);
    writer.publish(5, 1000, 4, 2, first.data());
    ASSERT_TRUE(reader.read_newer(path, &frame));
    EXPECT_EQ((std::vector<uint64_t>{frame.sourceIndex, frame.ptsUs, uint64_t(frame.width),
                                     uint64_t(frame.height)}),
              (std::vector<uint64_t>{5, 1000, 4, 2}));
    EXPECT_EQ(frame.nv12, first);
    EXPECT_FALSE(reader.read_newer(path, &frame)) << "nothing newer";
    writer.publish(6, 2000, 6, 2, wide.data());
    EXPECT_FALSE(reader.read_newer(path, &frame)) << "another size is not published";
    writer.publish(7, 3000, 4, 2, second.data());
    ASSERT_TRUE(reader.read_newer(path, &frame));
    EXPECT_EQ(frame.sourceIndex, 7u);
    EXPECT_EQ(frame.nv12, second);
}
