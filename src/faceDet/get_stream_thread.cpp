#include "faceDet/get_stream_thread.h"

#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "dbgout/dbgout.h"
#include "detector/face_det_api.h"
#include "faceDet/frame_state.h"
#include "faceDet/box_filter.h"
#include "faceDet/color_convert.h"
#include "faceDet/luma_histogram.h"
#include "faceDet/move_decision.h"
#include "faceDet/process_globals.h"
#include "faceDet/target_selection.h"
#include "mi_sys.h"
#include "net_communication/net_communication.h"
#include "share_memory/share_memory.h"
#include "visca/visca.h"

#include "dbgout/construction_order.h"  // the gamma tables' place in the start-up order

// Constructed before the detector, and so destroyed after it (see construction_order.h).
FACEDET_CONSTRUCT_GAMMA_TABLES std::vector<int32_t> appliedOffsets(256, 0);
FACEDET_CONSTRUCT_GAMMA_TABLES std::vector<int32_t> newOffsets(256, 0);

// The stage time stamps, the framing sent when stopped and the histogram.
MI_U64 time_00, time_get_frame, time_autogamma, time_invoke, time_strategies, time_11;
MI_U64 time_PTZ, lastTime, newTime, Present_Time;
int32_t output_ture[4];
float g_v_hist[256];

namespace {

// Allocated once by the frame thread and kept for the life of the process.
struct FrameBuffers {
    MI_U8 *nv12 = nullptr;
    MI_U8 *bgr = nullptr;
    MI_U8 *spareLuma = nullptr;  // allocated, not used
    MI_U8 *spareWord = nullptr;  // allocated, not used
    // Two gamma records; the second is the thread's copy.
    GammaRecord *gammaRecords = nullptr;
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
    // Zeroed: until a read succeeds, the thread's copy asks for nothing (mode 0).
    s_buffers.gammaRecords = new GammaRecord[2]();
}

// The stage time stamps. On a PC at the camera's pace the platform learns
// what the loop did with each frame from how often it reads this clock
// between two takes, and charges the camera's time accordingly (host
// platform, pace_clock.h, frame_loop_reads): one read after a warm-up frame
// (time_00 of the next pass), three after a stopped one (get frame,
// autogamma, time_00), six after an analysed one (get frame, autogamma,
// invoke, strategies, all, time_00). The rest of a frame's cost shows in the
// get-frame stage and the analysis in the invoke stage. Adding or moving a
// read here breaks that contract: the camera-pace test of the stage lines
// fails, and the platform's counts must change with it.
MI_U64 now_pts() {
    MI_U64 pts = 0;
    MI_SYS_GetCurPts(&pts);
    return pts;
}

void zero_time_stamps() {
    time_00 = time_get_frame = time_autogamma = time_invoke = time_strategies = time_11 = 0;
    time_PTZ = lastTime = newTime = Present_Time = 0;
}

// A signal lands on any thread, so the frame thread's own waits are cut into
// slices that look at the exit flag: SIGINT or SIGTERM ends the daemon well
// within 2 s even while the source is stalled or the thread is starting, and
// within a slice of the off and stopped states' pauses.
constexpr long kExitCheckMicros = 100000;

bool exit_requested() {
    return g_exit_all_flag.load(std::memory_order_relaxed) != 0;
}

// Sleeps `micros`, or less once an exit is requested.
void sleep_unless_exiting(long micros) {
    for (; micros > 0 && !exit_requested(); micros -= kExitCheckMicros) {
        usleep(static_cast<useconds_t>(micros < kExitCheckMicros ? micros : kExitCheckMicros));
    }
}

// Waits up to 2 s for a frame on fd. True when one can be taken; false on a
// failure, the time-out, or an exit request.
bool wait_for_frame(MI_S32 fd) {
    int s32Ret = 0;
    for (long waited = 0; waited < 2000000 && s32Ret == 0; waited += kExitCheckMicros) {
        if (exit_requested()) {
            return false;
        }
        fd_set readFds;
        FD_ZERO(&readFds);
        FD_SET(fd, &readFds);
        struct timeval timeout = {0, kExitCheckMicros};
        s32Ret = select(fd + 1, &readFds, nullptr, nullptr, &timeout);
        if (s32Ret > 0) {
            return FD_ISSET(fd, &readFds);
        }
    }
    if (s32Ret < 0) {
        int err = errno;
        FD_LOG(LOG_ERROR, "s32Ret = %d, select failed!\n", s32Ret);
        fprintf(stderr, "fail to select, error: %d, %s\n", err, strerror(err));
        usleep(30000);
        return false;
    }
    FD_LOG(LOG_ERROR, "get frame time out\n");
    return false;
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
    nv12_to_bgr(s_buffers.nv12, s_buffers.bgr, kFrameWidth, kFrameHeight);
    if (MI_SYS_ChnOutputPortPutBuf(hHandle) != MI_SUCCESS) {
        FD_LOG(LOG_ERROR, "Release Frame Failed\n");
    }
    return true;
}

// Lists of the analysis, sized once so that a frame allocates nothing of its own.
struct FrameLists {
    std::vector<FaceResult> faces;     // the detector's result
    std::vector<Rect_t> frameBoxes;    // accepted boxes, 416x234
    std::vector<Rect_t> outputBoxes;   // the same, 1920x1080
    std::vector<Rect_t> workingBoxes;  // the copy target selection works on
    FrameLists() {
        frameBoxes.reserve(kMaxDetections);
        outputBoxes.reserve(kMaxDetections);
        workingBoxes.reserve(kMaxDetections);
    }
};

// Hands the decided framing to camera control: the record first, then the move.
void start_move() {
    g_objectData = tempObjectData;
    visca_move_to_object();
}

// Auto framing switched off: the camera goes to the full view every pass.
void send_full_view() {
    set_full_view_target(g_framing);
    start_move();
    FD_LOG(LOG_INFO, "\n\n\nstop Auto_Frame detect!\n\n\n");
    sleep_unless_exiting(100000);
}

// Detection, selection and decision of one frame while auto framing runs.
void run_auto_framing(FrameLists &lists) {
    lists.faces = FaceDet_Detect(s_buffers.bgr, kFrameWidth, kFrameHeight);
    filter_face_boxes(lists.faces, lists.frameBoxes, lists.outputBoxes, face_score);
    time_invoke = now_pts();
    FD_LOG(LOG_INFO, " ******** invoke time =[%lld] ms********",
           static_cast<long long>((time_invoke - time_autogamma) / 1000));

    lists.workingBoxes = lists.outputBoxes;
    select_target(g_targetSelection, lists.workingBoxes, face_score);
    if (move_decision_step(g_framing, g_targetSelection) == MoveRequest::MoveToObject) {
        start_move();
    }
    time_strategies = now_pts();
    FD_LOG(LOG_INFO, " ******** strategies time =[%lld] ms********",
           static_cast<long long>((time_strategies - time_invoke) / 1000));
    time_11 = now_pts();
    FD_LOG(LOG_INFO, " ******** all time =[%lld] ms********\n\n\n",
           static_cast<long long>((time_11 - time_00) / 1000));
}

void run_frame_loop(QMT_Stream_Stauts_t *stream, MI_S32 fd) {
    zero_time_stamps();
    int frameNumber = 0;
    FrameLists lists;

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
            sleep_unless_exiting(300000);
            continue;
        }

        time_00 = now_pts();
        if (!wait_for_frame(fd)) {
            continue;
        }
        if (!take_frame(&stream->dstChnPort)) {
            continue;
        }
        FD_LOG(LOG_INFO, "Algorithm Version:%s", FaceDet_GetVersion());

        frameNumber = next_frame_number(frameNumber);
        FD_LOG(LOG_INFO, "--------------frameNumber = %d-----------------", frameNumber);
        if (frameNumber <= kWarmUpFrames) {
            continue;
        }

        time_get_frame = now_pts();
        FD_LOG(LOG_INFO, " ******** get frame time =[%lld] ms********",
               static_cast<long long>((time_get_frame - time_00) / 1000));

        build_luma_histogram(s_buffers.nv12, kFrameWidth, kFrameHeight, g_v_hist);
        auto_gamma_step(daemon_gamma_state(), s_buffers.gammaRecords[1], g_v_hist, kShmGammaIo);
        time_autogamma = now_pts();
        FD_LOG(LOG_INFO, " ******** autogamma time =[%lld] ms********",
               static_cast<long long>((time_autogamma - time_get_frame) / 1000));

        const uint8_t command = MsgBuf[1].load(std::memory_order_relaxed);
        if (command == 0) {
            send_full_view();
        } else if (command == 1) {
            run_auto_framing(lists);
        }
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
    sleep_unless_exiting(2000000);

    allocate_frame_buffers();
    shm_track_map_open();

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
        shm_track_map_detach();
        FD_LOG(LOG_DEBUG, "__LINE__%d\tfaceDet release!", __LINE__);
    }

    MI_SYS_CloseFd(fd);
    FD_LOG(LOG_DEBUG, "get_stream_thread exit");
    return nullptr;
}
