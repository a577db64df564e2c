// The recorder's state, its start on the first event, the hand-over of events
// and its end at exit.
#include "recorder.h"

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

namespace recorder {
namespace {

constexpr int kExitWaitSeconds = 2;  // what the recorder may add to the process's exit
constexpr size_t kWriterStack = 128 * 1024;

// Never destroyed: at exit the writer or a receive thread may still use it.
alignas(Recorder) unsigned char g_storage[sizeof(Recorder)];
std::atomic<Recorder *> g_recorder{nullptr};

enum class Take { Record, Drop, Ignore };

void start_writer() {
    Recorder &r = *the_recorder();
    void *frames = mmap(nullptr, kFrameSlots * kFrameBytes, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (frames == MAP_FAILED) {
        say("faceDet recorder: cannot map its frame buffers (%s); faceDet runs without recording\n",
            strerror(errno));
        r.state = kOff;
        return;
    }
    r.frames = static_cast<uint8_t *>(frames);
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, kWriterStack);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    // The daemon's signals stay with the daemon's threads.
    sigset_t all, old;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &old);
    r.state = kStarting;
    pthread_t thread;
    const int error = pthread_create(&thread, &attr, writer_main, nullptr);
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    pthread_attr_destroy(&attr);
    if (error != 0) {
        say("faceDet recorder: cannot start its thread (%s); faceDet runs without recording\n",
            strerror(error));
        r.state = kOff;
    }
}

// Whether to queue an event now; the first one starts the writer.
Take take(Recorder *r) {
    if (r == nullptr) {
        return Take::Ignore;
    }
    int state = r->state.load(std::memory_order_acquire);
    if (state == kIdle) {
        pthread_once(&r->started, start_writer);
        state = r->state.load(std::memory_order_acquire);
    }
    if (state == kStarting || state == kRecording) {
        return Take::Record;
    }
    return state == kStopped ? Take::Drop : Take::Ignore;
}

// Gives the event the drops that came before it (they are recorded there).
void attach_drops(Recorder &r, Event &e) {
    e.droppedFrames = r.pendingFrames.exchange(0);
    e.droppedDatagrams = r.pendingDatagrams.exchange(0);
}

uint64_t monotonic_now() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<uint64_t>(t.tv_sec) * 1000000u + static_cast<uint64_t>(t.tv_nsec) / 1000u;
}

}  // namespace

uint64_t monotonic_us() {
    return monotonic_now();
}

void say(const char *fmt, ...) {
    char line[768];
    va_list args;
    va_start(args, fmt);
    const int n = vsnprintf(line, sizeof line, fmt, args);
    va_end(args);
    if (n > 0 && write(STDERR_FILENO, line, std::min<size_t>(static_cast<size_t>(n), sizeof line - 1)) < 0) {
        return;  // nowhere to say it
    }
}

Recorder *the_recorder() {
    return g_recorder.load(std::memory_order_acquire);
}

void set_up_recorder() {
    const char *dir = getenv("FACEDET_RECORD");
    if (dir == nullptr || dir[0] == '\0') {
        return;
    }
    Settings settings;
    char why[256];
    const bool usable = settings_from(dir, getenv("FACEDET_RECORD_MAX_MB"), getenv("FACEDET_RUNTIME_DIR"),
                                      &settings, why, sizeof why);
    // Programs the recorded process starts record nothing.
    unsetenv("FACEDET_RECORD");
    if (!usable) {
        say("faceDet recorder: %s; faceDet runs without recording\n", why);
        return;
    }
    Recorder *r = new (g_storage) Recorder();
    r->settings = settings;
    sem_init(&r->wake, 0, 0);
    sem_init(&r->done, 0, 0);
    r->state = kIdle;
    g_recorder.store(r, std::memory_order_release);
}

void recorder_forked() {
    if (Recorder *r = the_recorder()) {
        r->state = kOff;
    }
}

void finish_recorder() {
    Recorder *r = the_recorder();
    if (r == nullptr) {
        return;
    }
    const int state = r->state.load();
    if (state != kStarting && state != kRecording && state != kStopped) {
        return;
    }
    r->stopRequested = true;
    sem_post(&r->wake);
    timespec deadline;
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += kExitWaitSeconds;
    while (sem_timedwait(&r->done, &deadline) != 0 && errno == EINTR) {
    }
}

void record_frame(const recording::FrameFields &fields, const void *luma, const void *chroma) {
    Recorder *r = the_recorder();
    const Take t = take(r);
    if (t == Take::Ignore) {
        return;
    }
    const int slot = t == Take::Record ? r->slots.take() : -1;
    if (slot < 0) {
        ++r->pendingFrames;
        sem_post(&r->wake);
        return;
    }
    const uint64_t now = monotonic_now();
    // The copy goes into the buffer before the event is queued: the writer
    // never waits on a half-made event.
    uint8_t *to = r->frames + static_cast<size_t>(slot) * kFrameBytes;
    memcpy(to, luma, recording::kAnalysisFrame.lumaBytes);
    memcpy(to + recording::kAnalysisFrame.lumaBytes, chroma, recording::kAnalysisFrame.chromaBytes);
    const bool queued = r->events.push([&](Event &e) {
        e.kind = recording::Kind::Frame;
        e.slot = slot;
        e.timeUs = now;
        e.frame = fields;
        attach_drops(*r, e);
    });
    if (!queued) {
        r->slots.give(slot);
        ++r->pendingFrames;
    }
    sem_post(&r->wake);
}

void record_datagram(recording::Kind kind, const void *bytes, uint32_t length, size_t available,
                     int32_t result, int32_t error) {
    Recorder *r = the_recorder();
    const Take t = take(r);
    if (t == Take::Ignore) {
        return;
    }
    const uint64_t now = monotonic_now();
    const size_t kept = std::min<size_t>({length, available, recording::kMaxDatagramBytes});
    const bool queued = t == Take::Record && r->events.push([&](Event &e) {
        e.kind = kind;
        e.slot = -1;
        e.timeUs = now;
        e.datagram = {result, error, length, static_cast<uint32_t>(kept)};
        if (kept > 0) {
            memcpy(e.bytes, bytes, kept);
        }
        attach_drops(*r, e);
    });
    if (!queued) {
        ++r->pendingDatagrams;
    }
    sem_post(&r->wake);
}

}  // namespace recorder
