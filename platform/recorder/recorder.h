/*
 * The flight recorder inside the recorded process: one record of state, the
 * calls by which the interposed functions hand it events, and its writer
 * thread. The daemon's threads only copy an event into the queue (a frame
 * into a preallocated buffer first) and go on; the writer, started on the
 * first event, makes the recording and writes it. Everything that can go
 * wrong on the recording's side ends in dropped records, never in a changed
 * result, a wait or a signal for the daemon.
 */
#ifndef FACEDET_RECORDER_RECORDER_H
#define FACEDET_RECORDER_RECORDER_H

#include <pthread.h>
#include <semaphore.h>

#include <atomic>
#include <cstdint>

#include "event_queue.h"
#include "recorder_settings.h"
#include "recording/format.h"

namespace recorder {

constexpr int kFrameSlots = 8;  // 1.1 MiB, mapped once, resident only as far as used
constexpr size_t kQueueCells = 256;
constexpr size_t kFrameBytes = recording::kAnalysisFrame.lumaBytes + recording::kAnalysisFrame.chromaBytes;

struct Event {
    recording::Kind kind = recording::Kind::Frame;
    int slot = -1;  // frames: the buffer holding the picture
    // Events that could not be queued just before this one.
    uint32_t droppedFrames = 0;
    uint32_t droppedDatagrams = 0;
    uint64_t timeUs = 0;
    recording::FrameFields frame;
    recording::DatagramFields datagram;
    uint8_t bytes[recording::kMaxDatagramBytes];
};

enum State : int {
    kOff,   // not recording: FACEDET_RECORD unset or unusable, a forked child, or no recording could be made
    kIdle,  // set up, nothing recorded yet
    kStarting,   // the writer makes the recording; events are queued
    kRecording,  // events are queued and written
    kStopped,    // the recording cannot take more (disk full, size limit): events are counted as dropped
    kClosed,     // the process is ending; nothing more is recorded
};

struct Recorder {
    Settings settings;  // written before main, read-only after
    std::atomic<int> state{kOff};
    pthread_once_t started = PTHREAD_ONCE_INIT;

    EventQueue<Event, kQueueCells> events;
    SlotPool<kFrameSlots> slots;
    uint8_t *frames = nullptr;  // kFrameSlots pictures, mapped when the writer starts

    // Events not queued, not yet attached to a queued one or told the writer.
    std::atomic<uint32_t> pendingFrames{0};
    std::atomic<uint32_t> pendingDatagrams{0};

    sem_t wake;  // posted for every event; the writer waits on it
    sem_t done;  // posted when the writer has closed the recording
    std::atomic<bool> stopRequested{false};
};

// The process's recorder; null before the library's constructor has run.
Recorder *the_recorder();
// Sets it up from the environment (before main). Unless FACEDET_RECORD is set
// and usable, the recorder stays off and the hooks only pass calls on.
void set_up_recorder();
// A forked child records nothing.
void recorder_forked();
// At exit: the writer writes what is queued and closes the recording; waits for it a bounded time.
void finish_recorder();

// From the interposed calls, on any thread:
void record_frame(const recording::FrameFields &fields, const void *luma, const void *chroma);
void record_datagram(recording::Kind kind, const void *bytes, uint32_t length, size_t available,
                     int32_t result, int32_t error);

// Inside the recorder:
void *writer_main(void *);
// One line on stderr, written at once.
void say(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
uint64_t monotonic_us();

}  // namespace recorder

#endif
