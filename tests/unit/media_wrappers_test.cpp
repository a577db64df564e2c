// The platform wrappers' lines and results, stream start and stop, and the
// overlay palette, on the host platform.
#include <pthread.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "faceDet/process_globals.h"
#include "host_platform.h"
#include "media/qmt_video_stream.h"
#include "media/st_sys.h"
#include "media/st_venc.h"
#include "media/st_vpe.h"
#include "mi_sys.h"
#include "output_capture.h"
#include "qmt_rgn_api/qmt_rgn_api.h"
#include "raw_clip.h"
#include "temp_dir.h"

namespace {

// The frame thread started here opens the segment and the trace file: both go
// to this process's own key and folder, never the camera's 0x1123 and /dev.
TempDir &private_runtime() {
    static TempDir dir;
    return dir;
}
key_t private_key() {
    return static_cast<key_t>(0x54000000 + (getpid() & 0x3fffff));
}
const bool kPrivateRuntime = [] {
    setenv("FACEDET_RUNTIME_DIR", private_runtime().path().c_str(), 1);
    setenv("FACEDET_SHM_KEY", std::to_string(private_key()).c_str(), 1);
    return true;
}();

// One host platform session, with or without a frame source.
class HostSession {
  public:
    explicit HostSession(const std::string &source) {
        host::Config config;
        config.source = source;
        config.pace = host::Pace::Lockstep;
        host::use_config_for_next_init(config);
        OutputCapture quiet(2);  // a missing source is reported on stderr
        init_ = MI_SYS_Init();
    }
    ~HostSession() { MI_SYS_Exit(); }
    MI_S32 init_result() const { return init_; }

  private:
    MI_S32 init_;
};

std::string hex(MI_S32 code) {
    char text[16];
    snprintf(text, sizeof text, "%x", code);
    return text;
}

class WrappersWithSource : public ::testing::Test {
  protected:
    void SetUp() override {
        write_raw_clip(dir_.file("clip.nv12"), 20);
        session_ = std::make_unique<HostSession>(dir_.file("clip.nv12"));
        ASSERT_EQ(session_->init_result(), MI_SUCCESS);
    }
    void TearDown() override {
        session_.reset();
        g_stream_stauts[0].u32Enable = 0;
        g_exit_all_flag = 0;
        const int id = shmget(private_key(), 0, 0);
        if (id >= 0) {
            shmctl(id, IPC_RMID, nullptr);
        }
    }
    TempDir dir_;
    std::unique_ptr<HostSession> session_;
};

ST_VPE_PortInfo_T analysis_port() {
    ST_VPE_PortInfo_T info;
    memset(&info, 0, sizeof info);
    info.u32ChnId = 0;
    info.u16OutputWidth = 416;
    info.u16OutputHeight = 234;
    info.ePixelFormat = E_MI_SYS_PIXEL_FRAME_YUV_SEMIPLANAR_420;
    return info;
}

}  // namespace

TEST(VpeStartPort, WithoutARunningChannelFailsAtItsFirstCall) {
    HostSession session("");
    ST_VPE_PortInfo_T info = analysis_port();
    OutputCapture capture;
    MI_S32 ret = ST_Vpe_StartPort(1, &info);
    std::string out = capture.finish();
    ASSERT_NE(ret, MI_SUCCESS);
    EXPECT_EQ(out,
              "xxxxxxxxxxx........ST_Vpe_StartPort......0  1....\n"
              "[ST_Vpe_StartPort 148]exec function failed, error:" +
                  hex(ret) + "\n");
}

TEST_F(WrappersWithSource, StartAndStopPortReportEachCall) {
    ST_VPE_PortInfo_T info = analysis_port();
    OutputCapture capture;
    ASSERT_EQ(ST_Vpe_StartPort(1, &info), MI_SUCCESS);
    ASSERT_EQ(ST_Vpe_StopPort(0, 1), MI_SUCCESS);
    EXPECT_EQ(capture.finish(),
              "xxxxxxxxxxx........ST_Vpe_StartPort......0  1....\n"
              "[ST_Vpe_StartPort 148]exec function pass\n"
              "[ST_Vpe_StartPort 153]exec function pass\n"
              "[ST_Vpe_StartPort 159]exec function pass\n"
              "[ST_Vpe_StartPort 161]exec function pass\n"
              "[ST_Vpe_StopPort 168]exec function pass\n");
}

TEST_F(WrappersWithSource, StartPortStopsAtTheFirstRefusal) {
    ST_VPE_PortInfo_T info = analysis_port();
    info.u16OutputWidth = 0;  // no platform accepts an empty picture
    OutputCapture capture;
    MI_S32 ret = ST_Vpe_StartPort(1, &info);
    std::string out = capture.finish();
    ASSERT_NE(ret, MI_SUCCESS);
    EXPECT_NE(
        out.find(
            "[ST_Vpe_StartPort 148]exec function pass\n[ST_Vpe_StartPort 153]exec function failed, error:" +
            hex(ret) + "\n"),
        std::string::npos)
        << out;
    EXPECT_EQ(out.find("159"), std::string::npos);
}

TEST(StreamStop, RefusesSilentlyWhenNotRunning) {
    g_stream_stauts[0].u32Enable = 0;
    OutputCapture capture;
    EXPECT_EQ(QMT_Video_Stream_Stop(), -1);
    EXPECT_EQ(capture.finish(), "");
}

TEST(StreamStart, FailureOfThePortIsReportedAndReturned) {
    HostSession session("");
    OutputCapture capture;
    MI_S32 ret = QMT_Video_Stream_Start();
    std::string out = capture.finish();
    ASSERT_NE(ret, MI_SUCCESS);
    EXPECT_NE(out.find("[QMT_Video_Stream_Start 2580]exec function failed, error:" + hex(ret) + "\n"),
              std::string::npos)
        << out;
    EXPECT_EQ(g_stream_stauts[0].u32Enable, 0u);
    EXPECT_EQ(g_ive_VB_Proc_flag, 0);
}

TEST_F(WrappersWithSource, StreamStartsTheFrameThreadAndStopsAgain) {
    OutputCapture capture;
    ASSERT_EQ(QMT_Video_Stream_Start(), MI_SUCCESS);
    EXPECT_EQ(g_stream_stauts[0].u32Enable, 1u);
    EXPECT_EQ(g_ive_VB_Proc_flag, 1);
    const MI_SYS_ChnPort_t &port = g_stream_stauts[0].dstChnPort;
    EXPECT_EQ(port.eModId, E_MI_MODULE_ID_VPE);
    EXPECT_EQ(port.u32DevId, 0u);
    EXPECT_EQ(port.u32ChnId, 0u);
    EXPECT_EQ(port.u32PortId, 1u);
    // The frame thread publishes its record and ends once asked to.
    EXPECT_EQ(QMT_Stream_Stauts.load(), &g_stream_stauts[0]);
    g_exit_all_flag = 1;
    pthread_join(g_stream_stauts[0].stream_thread_pid, nullptr);

    // Starting again while running stops first.
    ASSERT_EQ(QMT_Video_Stream_Start(), MI_SUCCESS);
    pthread_join(g_stream_stauts[0].stream_thread_pid, nullptr);
    ASSERT_EQ(QMT_Video_Stream_Stop(), MI_SUCCESS);
    std::string out = capture.finish();

    const char *const order[] = {
        "[ST_Vpe_StartPort 161]exec function pass\n",
        "(QMT_Video_Stream_Start 2580)exec function pass\n",
        "(QMT_Video_Stream_Start 2582)exec function pass\n",
        "[ST_Vpe_StopPort 168]exec function pass\n(QMT_Video_Stream_Stop 2517)exec function pass\n",
        "xxxxxxxxxxx........ST_Vpe_StartPort......0  1....\n",
        "(QMT_Video_Stream_Start 2582)exec function pass\n",
        "[ST_Vpe_StopPort 168]exec function pass\n(QMT_Video_Stream_Stop 2517)exec function pass\n",
    };
    size_t at = 0;
    for (const char *line : order) {
        size_t found = out.find(line, at);
        ASSERT_NE(found, std::string::npos) << "missing in order: " << line << "\n" << out;
        at = found + 1;
    }
    EXPECT_EQ(g_stream_stauts[0].u32Enable, 0u);
}

TEST(SysWrappers, InitAndExitUseRoundBracketPassLines) {
    host::Config config;
    host::use_config_for_next_init(config);
    OutputCapture err(2);
    OutputCapture capture;
    ASSERT_EQ(ST_Sys_Init(), MI_SUCCESS);
    ASSERT_EQ(ST_Sys_Exit(), MI_SUCCESS);
    std::string out = capture.finish();
    err.finish();
    const char *const order[] = {
        "(ST_Sys_Init 23)exec function pass\n", "(ST_Sys_Init 26)exec function pass\n",
        "[INFO]:ST_Sys_Init[27]: \nu8Version:", "(ST_Sys_Init 29)exec function pass\n",
        "[INFO]:ST_Sys_Init[30]: \nu64Pts:0x",  "(ST_Sys_Init 33)exec function pass\n",
        "(ST_Sys_Init 36)exec function pass\n", "(ST_Sys_Exit 43)exec function pass\n"};
    size_t at = 0;
    for (const char *line : order) {
        size_t found = out.find(line, at);
        ASSERT_NE(found, std::string::npos) << "missing in order: " << line << "\n" << out;
        at = found + 1;
    }
}

TEST(SysWrappers, BindPrintsBothPortsAndTheType) {
    HostSession session("");
    ST_Sys_BindInfo_T bind;
    memset(&bind, 0, sizeof bind);
    bind.stSrcChnPort = {E_MI_MODULE_ID_VIF, 0, 0, 0};
    bind.stDstChnPort = {E_MI_MODULE_ID_VPE, 0, 0, 0};
    bind.u32SrcFrmrate = 30;
    bind.u32DstFrmrate = 30;
    bind.eBindType = E_MI_SYS_BIND_TYPE_FRAME_BASE;
    OutputCapture capture;
    ASSERT_EQ(ST_Sys_Bind(&bind), MI_SUCCESS);
    ASSERT_EQ(ST_Sys_UnBind(&bind), MI_SUCCESS);
    EXPECT_EQ(capture.finish(),
              "[ST_Sys_Bind 56]exec function pass\n\nsrc(6-0-0-0)  dst(7-0-0-0)  1...\n\n"
              "[ST_Sys_UnBind 68]exec function pass\n");
}

TEST(SysWrappers, FrameIntervalHelpers) {
    EXPECT_EQ(ST_Sys_GetFrameIntervalMs(0), -1);
    EXPECT_EQ(ST_Sys_GetFrameIntervalMs(30), 33);
    EXPECT_EQ(ST_Sys_GetFrameIntervalMs(1), 1000);
    EXPECT_EQ(ST_Vpe_GetDefaultMode(), 24);
}

TEST(VencWrappers, NullAttributesAreRefusedBeforeAnyCall) {
    OutputCapture capture;
    EXPECT_EQ(ST_Venc_CreateChannel(0, nullptr), -1);
    EXPECT_EQ(capture.finish(), "\033[0;31m[ERR]:ST_Venc_CreateChannel[28]: \033[0minvalid param\n");
}

TEST(VencWrappers, ChannelLifecycleReportsEachCall) {
    HostSession session("");
    MI_VENC_ChnAttr_t attr;
    memset(&attr, 0, sizeof attr);
    attr.eType = E_MI_VENC_MODTYPE_H264E;
    attr.u32PicWidth = 1920;
    attr.u32PicHeight = 1080;
    attr.u32FrameRate = 30;
    OutputCapture capture;
    ASSERT_EQ(ST_Venc_CreateChannel(0, &attr), MI_SUCCESS);
    ASSERT_EQ(ST_Venc_StartChannel(0), MI_SUCCESS);
    ASSERT_EQ(ST_Venc_StopChannel(0), MI_SUCCESS);
    ASSERT_EQ(ST_Venc_DestoryChannel(0), MI_SUCCESS);
    EXPECT_EQ(capture.finish(),
              "[ST_Venc_CreateChannel 32]exec function pass\n[ST_Venc_StartChannel 58]exec function pass\n"
              "[ST_Venc_StopChannel 65]exec function pass\n[ST_Venc_DestoryChannel 50]exec function pass\n"
              "[ST_Venc_DestoryChannel 51]exec function pass\n");
}

TEST(Overlay, PaletteHasExactlyFourOpaqueColours) {
    HostSession session("");
    OutputCapture capture;
    ASSERT_EQ(qmt_rgn_init(), MI_SUCCESS);
    EXPECT_EQ(capture.finish(), "[qmt_rgn_init 569]exec function pass\n");
    MI_RGN_PaletteTable_t palette;
    ASSERT_TRUE(host::rgn_palette(&palette));
    int nonZero = 0;
    for (int i = 0; i < 256; ++i) {
        const MI_RGN_PaletteElement_t &e = palette.astElement[i];
        if (e.u8Alpha || e.u8Red || e.u8Green || e.u8Blue) {
            ++nonZero;
        }
    }
    EXPECT_EQ(nonZero, 4);
    auto expect = [&](int index, int r, int g, int b) {
        const MI_RGN_PaletteElement_t &e = palette.astElement[index];
        EXPECT_EQ(e.u8Alpha, 255) << index;
        EXPECT_EQ(e.u8Red, r) << index;
        EXPECT_EQ(e.u8Green, g) << index;
        EXPECT_EQ(e.u8Blue, b) << index;
    };
    expect(1, 255, 0, 0);
    expect(2, 0, 255, 0);
    expect(3, 0, 0, 255);
    expect(255, 255, 255, 255);
}

TEST(Overlay, RefusalIsReportedWithItsCode) {
    HostSession session("");
    MI_RGN_PaletteTable_t palette;
    qmt_rgn_fill_palette(&palette);
    ASSERT_EQ(MI_RGN_Init(&palette), MI_SUCCESS);  // a second initialisation is refused
    OutputCapture capture;
    MI_S32 ret = qmt_rgn_init();
    ASSERT_NE(ret, MI_SUCCESS);
    EXPECT_EQ(capture.finish(), "[qmt_rgn_init 569]exec function failed, error:" + hex(ret) + "\n");
    MI_RGN_DeInit();
}
