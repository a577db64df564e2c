#include "faceDet/process_globals.h"

#include <unistd.h>

#include <cerrno>
#include <ctime>

std::atomic<QMT_Stream_Stauts_t *> QMT_Stream_Stauts{nullptr};
std::atomic<int32_t> g_exit_all_flag{0};
int32_t WIDTH = 3840;

static_assert(std::atomic<int32_t>::is_always_lock_free, "the signal handler needs a lock-free flag");

// Runs on whichever thread takes the signal, so it uses only async-signal-safe
// calls: write(2) for the text (same bytes, no line break) and nanosleep.
void HandleExitSig(int sig) {
    (void)sig;
    const int savedErrno = errno;
    static const char kText[] = "program exit abnormally!";
    ssize_t written = write(STDOUT_FILENO, kText, sizeof kText - 1);
    (void)written;
    g_exit_all_flag.store(1, std::memory_order_relaxed);
    struct timespec pause = {0, 20000000};
    while (nanosleep(&pause, &pause) != 0 && errno == EINTR) {
    }
    errno = savedErrno;
}

extern "C" {
__attribute__((visibility("default"))) MI_S32 MI_ISP_EnableUserspace3A(void) {
    return 0;
}
__attribute__((visibility("default"))) MI_S32 MI_ISP_DisableUserspace3A(void) {
    return 0;
}
}
