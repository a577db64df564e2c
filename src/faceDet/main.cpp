/*
 * faceDet: automatic framing for a pan-tilt-zoom camera.
 *
 * main sets the process up in a fixed order, then waits for the frame thread,
 * which runs until SIGINT or SIGTERM; the exit status is the result of
 * stopping the stream.
 */
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "faceDet/process_globals.h"
#include "dbgout/runtime_env.h"
#include "media/qmt_video_stream.h"
#include "mi_sys.h"
#include "net_communication/net_communication.h"
#include "qmt_rgn_api/qmt_rgn_api.h"
#include "visca/visca.h"

namespace {

void install_exit_handler(int sig) {
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_handler = HandleExitSig;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;  // what plain signal() gives
    if (sigaction(sig, &action, nullptr) != 0) {
        // The daemon runs on, but this signal no longer stops it in order.
        fprintf(stderr, "faceDet: sigaction(%d): %s\n", sig, strerror(errno));
    }
}

// The frame thread publishes its record within the 100 ms that stream start
// sleeps; on a heavily loaded machine it may need longer, and a null record
// must never be read.
QMT_Stream_Stauts_t *wait_for_stream_record() {
    QMT_Stream_Stauts_t *record;
    while ((record = QMT_Stream_Stauts.load(std::memory_order_acquire)) == nullptr) {
        usleep(1000);
    }
    return record;
}

}  // namespace

int main(int argc, char **argv) {
    (void)argv;
    // Line buffering keeps our lines in order with the signal handler's direct
    // write when the console is a pipe or a file, as it is on a terminal.
    setvbuf(stdout, nullptr, _IOLBF, 0);
    if (!runtime_env_valid()) {
        return 255;
    }

    if (argc == 1) {
        printf("faceDet starting!\n");
    }
    printf("g_stream_stauts[0].u32InputChn == %d  g_stream_stauts[0].u32InputPort == %d\n",
           g_stream_stauts[0].u32InputChn, g_stream_stauts[0].u32InputPort);

    install_exit_handler(SIGINT);
    install_exit_handler(SIGTERM);

    MI_SYS_Init();
    // The camera's replies go up to the VISCA layer, which builds on the endpoints.
    set_camera_reply_handler(VISCA_Command_Receive);
    camera_udp_init();
    qmt_rgn_init();

    MI_S32 s32Ret = QMT_Video_Stream_Start();
    if (s32Ret != MI_SUCCESS) {
        puts("QMT_Video_Stream_Start failed");
        puts("error exit");
        s32Ret = QMT_Video_Stream_Stop();
        if (s32Ret != MI_SUCCESS) {
            puts("QMT_Video_Stream_Stop failed");
        }
        return s32Ret;
    }

    pthread_join(wait_for_stream_record()->stream_thread_pid, nullptr);

    s32Ret = QMT_Video_Stream_Stop();
    if (s32Ret != MI_SUCCESS) {
        printf("QMT_Video_Stream_Stop failed!\n");
        return s32Ret;
    }
    printf("QMT_Video_Stream_Stop succeed!\n");
    MI_SYS_Exit();
    return 0;
}
