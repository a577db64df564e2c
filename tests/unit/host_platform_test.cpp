// The host platform's emulated media pipeline (frames delivered in order
// through the port's descriptor, queue rules, the frame log, scaling for a port
// of another size) and the daemon's wrappers' lines and results over it, which
// its own runs do not print: a refused port, the system's start and end.
#include <poll.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "frame_source.h"
#include "host_platform.h"
#include "media/qmt_video_stream.h"
#include "media/st_sys.h"
#include "media/st_venc.h"
#include "media/st_vpe.h"
#include "mi_sys.h"
#include "mi_vpe.h"
#include "output_capture.h"
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

}  // namespace

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
