// The platform wrappers' lines and results on the host platform, where the
// daemon's own runs do not print them: a refused port, the system's start and end.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "host_platform.h"
#include "media/qmt_video_stream.h"
#include "media/st_sys.h"
#include "media/st_vpe.h"
#include "mi_sys.h"
#include "output_capture.h"
#include "raw_clip.h"
#include "temp_dir.h"

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
