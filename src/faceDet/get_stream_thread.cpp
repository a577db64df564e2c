#include "faceDet/get_stream_thread.h"

#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "dbgout/dbgout.h"
#include "faceDet/process_globals.h"
#include "mi_sys.h"
#include "net_communication/net_communication.h"

#define FD_LOG(level, ...) console_log("src/faceDet", __LINE__, (level), __VA_ARGS__)

// This unit's tables are constructed before the detector's (link order), and
// so destroyed after it.
std::vector<int32_t> appliedOffsets(256, 0);
std::vector<int32_t> newOffsets(256, 0);

MI_U64 time_00, time_get_frame, time_autogamma, time_invoke, time_strategies, time_11;
MI_U64 time_PTZ, lastTime, newTime, Present_Time;
int32_t output_ture[4];

namespace {

// Allocated once by the frame thread and kept for the life of the process.
struct FrameBuffers {
    MI_U8 *nv12 = nullptr;
    MI_U8 *bgr = nullptr;
    MI_U8 *spareLuma = nullptr;  // allocated, not used
    MI_U8 *spareWord = nullptr;  // allocated, not used
    MI_U8 *gammaRecords = nullptr;
};
FrameBuffers s_buffers;

void allocate_frame_buffers() {
    if (s_buffers.nv12 != nullptr) {
        return;
    }
    s_buffers.nv12 = new MI_U8[kNv12Bytes];
    s_buffers.bgr = new MI_U8[kBgrBytes];
    s_buffers.spareLuma = new MI_U8[kLumaBytes];
    s_buffers.spareWord = new MI_U8[4];
    s_buffers.gammaRecords = new MI_U8[2 * kGammaRecordBytes];
}

MI_U64 now_pts() {
    MI_U64 pts = 0;
    MI_SYS_GetCurPts(&pts);
    return pts;
}

void zero_time_stamps() {
    time_00 = time_get_frame = time_autogamma = time_invoke = time_strategies = time_11 = 0;
    time_PTZ = lastTime = newTime = Present_Time = 0;
}

// Waits up to 2 s for a frame on fd. True when one can be taken.
bool wait_for_frame(MI_S32 fd) {
    fd_set readFds;
    FD_ZERO(&readFds);
    FD_SET(fd, &readFds);
    struct timeval timeout = {2, 0};
    int s32Ret = select(fd + 1, &readFds, nullptr, nullptr, &timeout);
    if (s32Ret < 0) {
        int err = errno;
        FD_LOG(LOG_ERROR, "s32Ret = %d, select failed!\n", s32Ret);
        fprintf(stderr, "fail to select, error: %d, %s\n", err, strerror(err));
        usleep(30000);
        return false;
    }
    if (s32Ret == 0) {
        FD_LOG(LOG_ERROR, "get frame time out\n");
        return false;
    }
    return FD_ISSET(fd, &readFds);
}

// Takes one frame, copies its two planes and gives the buffer straight back.
bool take_frame(MI_SYS_ChnPort_t *chnPort) {
    MI_SYS_BufInfo_t stBufInfo;
    MI_SYS_BUF_HANDLE hHandle;
    memset(&stBufInfo, 0, sizeof stBufInfo);
    memset(&hHandle, 0, sizeof hHandle);
    if (MI_SYS_ChnOutputPortGetBuf(chnPort, &stBufInfo, &hHandle) != MI_SUCCESS) {
        FD_LOG(LOG_ERROR, "MI_SYS_ChnOutputPortGetBuf Failed\n");
        return false;
    }
    memcpy(s_buffers.nv12, stBufInfo.stFrameData.pVirAddr[0], kLumaBytes);
    memcpy(s_buffers.nv12 + kLumaBytes, stBufInfo.stFrameData.pVirAddr[1], kChromaBytes);
    if (MI_SYS_ChnOutputPortPutBuf(hHandle) != MI_SUCCESS) {
        FD_LOG(LOG_ERROR, "Release Frame Failed\n");
    }
    return true;
}

void run_frame_loop(QMT_Stream_Stauts_t *stream, MI_S32 fd) {
    zero_time_stamps();
    int frameNumber = 0;

    for (;;) {
        // Both globals are written by other threads and read afresh every pass.
        FD_LOG(LOG_INFO, "MsgBuf[0]=%x , MsgBuf[1]=%x ", MsgBuf[0].load(std::memory_order_relaxed),
               MsgBuf[1].load(std::memory_order_relaxed));
        if (g_exit_all_flag.load(std::memory_order_relaxed) != 0) {
            break;
        }
        if (MsgBuf[1].load(std::memory_order_relaxed) == 2) {
            output_ture[0] = 0;
            output_ture[1] = 0;
            output_ture[2] = 1919;
            output_ture[3] = 1079;
            FD_LOG(LOG_INFO, "\n\n\nMsgBuf[1] == 0x2 \n\n\n");
            usleep(300000);
            continue;
        }

        time_00 = now_pts();
        if (!wait_for_frame(fd)) {
            continue;
        }
        if (!take_frame(&stream->dstChnPort)) {
            continue;
        }

        frameNumber = next_frame_number(frameNumber);
        FD_LOG(LOG_INFO, "--------------frameNumber = %d-----------------", frameNumber);
        if (frameNumber <= kWarmUpFrames) {
            continue;
        }

        time_get_frame = now_pts();
        FD_LOG(LOG_INFO, " ******** get frame time =[%lld] ms********",
               static_cast<long long>((time_get_frame - time_00) / 1000));
    }
}

}  // namespace

int next_frame_number(int frameNumber) {
    ++frameNumber;
    if (frameNumber > kFrameCounterLimit) {
        frameNumber = kFrameCounterRestart;
    }
    return frameNumber;
}

void *Get_stream_thread(void *arg) {
    QMT_Stream_Stauts_t *stream = static_cast<QMT_Stream_Stauts_t *>(arg);
    QMT_Stream_Stauts.store(stream, std::memory_order_release);
    usleep(2000000);

    allocate_frame_buffers();

    MI_S32 fd = 0;
    if (stream == nullptr) {
        puts("args error");
    } else if (MI_S32 s32Ret = MI_SYS_GetFd(&stream->dstChnPort, &fd); s32Ret != MI_SUCCESS) {
        FD_LOG(LOG_ERROR, "MI_SYS_GetFd error, %X\n", s32Ret);
    } else if (stream->stream_thread_pid == 0 || stream->u32Enable != 1) {
        FD_LOG(LOG_ERROR, "Get_stream_thread!");
    } else {
        printf(
            "QMT_Stream_Stauts_t u32Enable=%d, u32InputChn=%d; u32InputPort=%d; ePixelFormat=%d; "
            "eBindType=%d;u32Width=%d; u32Height=%d; u32FrameRate=%d; stream_thread_pid=%d; "
            "dstChnPort=%d\n",
            stream->u32Enable, stream->u32InputChn, stream->u32InputPort, stream->ePixelFormat,
            stream->eBindType, stream->u32Width, stream->u32Height, stream->u32FrameRate,
            static_cast<int>(stream->stream_thread_pid), static_cast<int>(stream->dstChnPort.eModId));

        run_frame_loop(stream, fd);

        usleep(20000);
        FD_LOG(LOG_DEBUG, "__LINE__%d\tfaceDet release!", __LINE__);
    }

    MI_SYS_CloseFd(fd);
    FD_LOG(LOG_DEBUG, "get_stream_thread exit");
    return nullptr;
}
