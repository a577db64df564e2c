#include "media/stream_record.h"

QMT_Stream_Stauts_t g_stream_stauts[1] = {{
    0,                                        // u32Enable
    0,                                        // u32InputChn
    1,                                        // u32InputPort
    E_MI_SYS_PIXEL_FRAME_YUV_SEMIPLANAR_420,  // ePixelFormat (11)
    E_MI_SYS_BIND_TYPE_FRAME_BASE,            // eBindType (1)
    416,                                      // u32Width
    234,                                      // u32Height
    30,                                       // u32FrameRate
    0,                                        // stream_thread_pid
    {static_cast<MI_ModuleId_e>(0), 0, 0, 0},
}};

MI_U8 g_ive_VB_Proc_flag = 0;
