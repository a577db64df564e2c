#include "media/qmt_video_stream.h"

#include <unistd.h>

#include <cstdio>

// The one include that points up: stream start launches the frame thread.
#include "faceDet/get_stream_thread.h"
#include "media/st_report.h"
#include "media/stream_record.h"
#include "media/st_vpe.h"
#include "mi_sys.h"

MI_S32 QMT_Video_Stream_Start(void) {
    QMT_Stream_Stauts_t &stream = g_stream_stauts[0];
    MI_S32 s32Ret = MI_SUCCESS;

    if (stream.u32Enable == 1) {
        s32Ret = QMT_Video_Stream_Stop();
        if (s32Ret != MI_SUCCESS) {
            printf("QMT_Video_Stream_Stop error ret=%d\n", s32Ret);
        }
    }

    ST_VPE_PortInfo_T stPortInfo;
    stPortInfo.u32ChnId = static_cast<MI_VPE_CHANNEL>(stream.u32InputChn);
    stPortInfo.u16OutputWidth = static_cast<MI_U16>(stream.u32Width);
    stPortInfo.u16OutputHeight = static_cast<MI_U16>(stream.u32Height);
    stPortInfo.ePixelFormat = stream.ePixelFormat;
    stPortInfo.u32Reserved = 0;
    s32Ret = st_report_round("QMT_Video_Stream_Start", 2580,
                             ST_Vpe_StartPort(static_cast<MI_VPE_PORT>(stream.u32InputPort), &stPortInfo));
    if (s32Ret != MI_SUCCESS) {
        return s32Ret;
    }

    stream.dstChnPort.eModId = E_MI_MODULE_ID_VPE;
    stream.dstChnPort.u32DevId = 0;
    stream.dstChnPort.u32ChnId = stream.u32InputChn;
    stream.dstChnPort.u32PortId = stream.u32InputPort;
    // Hold at most one frame and keep only the two newest queued, so the
    // analysis always works on a recent picture.
    s32Ret = st_report_round("QMT_Video_Stream_Start", 2582,
                             MI_SYS_SetChnOutputPortDepth(&stream.dstChnPort, 1, 2));
    if (s32Ret != MI_SUCCESS) {
        return s32Ret;
    }
    usleep(100000);

    stream.u32Enable = 1;
    if (pthread_create(&stream.stream_thread_pid, nullptr, Get_stream_thread, &stream) != 0) {
        puts("pthread_create fail");
        return -1;
    }
    g_ive_VB_Proc_flag = 1;
    // Gives the new thread time to publish the record before main joins it.
    usleep(100000);
    return MI_SUCCESS;
}

MI_S32 QMT_Video_Stream_Stop(void) {
    QMT_Stream_Stauts_t &stream = g_stream_stauts[0];
    if (stream.u32Enable == 0) {
        return -1;
    }
    stream.u32Enable = 0;
    return st_report_round("QMT_Video_Stream_Stop", 2517,
                           ST_Vpe_StopPort(static_cast<MI_VPE_CHANNEL>(stream.u32InputChn),
                                           static_cast<MI_VPE_PORT>(stream.u32InputPort)));
}
