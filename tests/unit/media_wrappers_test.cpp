// The platform wrappers' lines and results on the host platform, where the
// daemon's own runs do not print them (a refused port, the encoder, binding,
// the system's start and end).
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "faceDet/process_globals.h"
#include "host_platform.h"
#include "media/qmt_video_stream.h"
#include "media/st_sys.h"
#include "media/st_venc.h"
#include "media/st_vpe.h"
#include "mi_sys.h"
#include "output_capture.h"
#include "raw_clip.h"
#include "temp_dir.h"

namespace {

std::string hex(MI_S32 code) {
    char text[16];
    snprintf(text, sizeof text, "%x", code);
    return text;
}

// Runs `calls` on a host platform with or without a raw clip and returns what
// they printed, with "<err>" in place of the hex code of the last failure.
std::string printed(bool withSource, const std::function<MI_S32()> &calls) {
    TempDir dir;
    host::Config config;
    if (withSource) {
        write_raw_clip(dir.file("clip.nv12"), 20);
        config.source = dir.file("clip.nv12");
        config.pace = host::Pace::Lockstep;
    }
    host::use_config_for_next_init(config);
    OutputCapture quiet(2);  // a missing source is reported on stderr
    EXPECT_EQ(MI_SYS_Init(), MI_SUCCESS);
    OutputCapture capture;
    const MI_S32 ret = calls();
    std::string out = capture.finish();
    MI_SYS_Exit();
    g_stream_stauts[0].u32Enable = 0;
    g_exit_all_flag = 0;
    const size_t at = ret == MI_SUCCESS ? std::string::npos : out.rfind(hex(ret));
    return at == std::string::npos ? out : out.replace(at, hex(ret).size(), "<err>");
}

}  // namespace

TEST(MediaWrappers, EachCallPrintsItsLine) {
    struct Case {
        const char *what;
        bool withSource;
        std::function<MI_S32()> calls;
        std::string lines;
    } cases[] = {
        {"port start stops at the first refusal", true,
         [] {
             ST_VPE_PortInfo_T info;
             memset(&info, 0, sizeof info);  // no width: refused
             return ST_Vpe_StartPort(1, &info);
         },
         "xxxxxxxxxxx........ST_Vpe_StartPort......0  1....\n[ST_Vpe_StartPort 148]exec function pass\n"
         "[ST_Vpe_StartPort 153]exec function failed, error:<err>\n"},
        {"stream stop when not running", false, [] { return QMT_Video_Stream_Stop() == -1 ? 0 : 1; }, ""},
        {"venc without attributes", false, [] { return ST_Venc_CreateChannel(0, nullptr) == -1 ? 0 : 1; },
         "\033[0;31m[ERR]:ST_Venc_CreateChannel[28]: \033[0minvalid param\n"},
        {"venc life cycle", false,
         [] {
             MI_VENC_ChnAttr_t attr;
             memset(&attr, 0, sizeof attr);
             attr.eType = E_MI_VENC_MODTYPE_H264E;
             return ST_Venc_CreateChannel(0, &attr) | ST_Venc_StartChannel(0) | ST_Venc_StopChannel(0) |
                    ST_Venc_DestoryChannel(0);
         },
         "[ST_Venc_CreateChannel 32]exec function pass\n[ST_Venc_StartChannel 58]exec function pass\n"
         "[ST_Venc_StopChannel 65]exec function pass\n[ST_Venc_DestoryChannel 50]exec function pass\n"
         "[ST_Venc_DestoryChannel 51]exec function pass\n"},
        {"bind", false,
         [] {
             ST_Sys_BindInfo_T bind;
             memset(&bind, 0, sizeof bind);
             bind.stSrcChnPort = {E_MI_MODULE_ID_VIF, 0, 0, 0};
             bind.stDstChnPort = {E_MI_MODULE_ID_VPE, 0, 0, 0};
             bind.u32SrcFrmrate = bind.u32DstFrmrate = 30;
             bind.eBindType = E_MI_SYS_BIND_TYPE_FRAME_BASE;
             return ST_Sys_Bind(&bind) | ST_Sys_UnBind(&bind);
         },
         "[ST_Sys_Bind 56]exec function pass\n\nsrc(6-0-0-0)  dst(7-0-0-0)  1...\n\n"
         "[ST_Sys_UnBind 68]exec function pass\n"},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(printed(c.withSource, c.calls), c.lines) << c.what;
    }
    EXPECT_EQ(ST_Sys_GetFrameIntervalMs(0), -1);
    EXPECT_EQ(ST_Sys_GetFrameIntervalMs(30), 33);
    EXPECT_EQ(ST_Vpe_GetDefaultMode(), 24);
}

TEST(MediaWrappers, SysInitAndExitUseRoundBracketLinesInOrder) {
    host::use_config_for_next_init(host::Config{});
    OutputCapture err(2);
    OutputCapture capture;
    ASSERT_EQ(ST_Sys_Init(), MI_SUCCESS);
    ASSERT_EQ(ST_Sys_Exit(), MI_SUCCESS);
    const std::string out = capture.finish();
    size_t at = 0;
    for (const char *line :
         {"(ST_Sys_Init 23)exec function pass\n", "(ST_Sys_Init 26)exec function pass\n",
          "[INFO]:ST_Sys_Init[27]: \nu8Version:", "(ST_Sys_Init 29)exec function pass\n",
          "[INFO]:ST_Sys_Init[30]: \nu64Pts:0x", "(ST_Sys_Init 33)exec function pass\n",
          "(ST_Sys_Init 36)exec function pass\n", "(ST_Sys_Exit 43)exec function pass\n"}) {
        at = out.find(line, at);
        ASSERT_NE(at, std::string::npos) << "missing in order: " << line << "\n" << out;
    }
}
