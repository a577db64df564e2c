// The recorder's writer thread: makes the recording, turns queued events into
// records in the order they were queued, accounts for what was dropped, and
// closes the recording when the process exits.
#include <sys/prctl.h>
#include <sys/uio.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "drop_report.h"
#include "recorder.h"
#include "recording_file.h"

namespace recorder {
namespace {

using recording::Kind;

const char kBehind[] = "the writer is behind (its queue or frame buffers are full)";

class Writer {
  public:
    Writer(Recorder &r, RecordingFile &file) : r_(r), file_(file) {}

    // Writes every queued event.
    void drain() {
        while (r_.events.pop([this](Event &e) { handle(e); })) {
        }
        // Drops not yet attached to an event start their run now.
        if (pending() > 0) {
            report_dropped(0, kBehind);
        }
    }

    // The last records: what was dropped since the last event, and the end.
    void finish() {
        const uint32_t frames = r_.pendingFrames.exchange(0), datagrams = r_.pendingDatagrams.exchange(0);
        if (frames + datagrams > 0) {
            report_dropped(frames + datagrams, kBehind);
        }
        // With the events the writer itself could not write, so that the
        // Dropped records add up to the End record's count.
        if (frames + datagrams + unwrittenFrames_ + unwrittenDatagrams_ > 0) {
            write_dropped(frames + unwrittenFrames_, datagrams + unwrittenDatagrams_, monotonic_us(), true);
        }
        uint8_t fields[recording::kEndFieldBytes];
        recording::encode_end_fields({index_, report_.total()}, fields);
        write_small(Kind::End, monotonic_us(), fields, sizeof fields, nullptr, 0, true);
        char line[256];
        if (report_.finish(line, sizeof line)) {
            say("%s", line);
        }
    }

  private:
    uint32_t pending() const { return r_.pendingFrames.load() + r_.pendingDatagrams.load(); }

    void handle(Event &e) {
        char why[256] = "the recording has stopped";
        if (e.droppedFrames + e.droppedDatagrams > 0) {
            report_dropped(e.droppedFrames + e.droppedDatagrams, kBehind);
            if (!(recording_ && write_dropped(e.droppedFrames, e.droppedDatagrams, e.timeUs, false, why))) {
                stop(e.droppedFrames, e.droppedDatagrams, why);
            }
        }
        const bool kept = recording_ && write_event(e, why, sizeof why);
        if (e.kind == Kind::Frame) {
            r_.slots.give(e.slot);
        }
        if (!kept) {
            stop(e.kind == Kind::Frame ? 1 : 0, e.kind == Kind::Frame ? 0 : 1, why);
            report_dropped(1, why);
            return;
        }
        char line[256];
        if (pending() == 0 && report_.written(line, sizeof line)) {
            say("%s", line);
        }
    }

    // Whatever stopped a record stops the recording: a full disk or the size
    // limit would drop every frame after it anyway. From here on the daemon's
    // threads only count what they would have queued, and what the writer
    // could not write goes into the last Dropped record.
    void stop(uint32_t frames, uint32_t datagrams, const char *why) {
        unwrittenFrames_ += frames;
        unwrittenDatagrams_ += datagrams;
        if (recording_) {
            recording_ = false;
            int running = kRecording;
            r_.state.compare_exchange_strong(running, kStopped);
            report_dropped(0, why);
        }
    }

    void report_dropped(uint64_t count, const char *why) {
        char line[512];
        if (report_.dropped(count, why, line, sizeof line)) {
            say("%s", line);
        }
    }

    bool write_event(const Event &e, char *why, size_t whySize) {
        if (e.kind != Kind::Frame) {
            uint8_t fields[recording::kDatagramFieldBytes];
            recording::encode_datagram_fields(e.datagram, fields);
            return write_small(e.kind, e.timeUs, fields, sizeof fields, e.bytes, e.datagram.kept, false, why,
                               whySize);
        }
        const uint8_t *picture = r_.frames + static_cast<size_t>(e.slot) * kFrameBytes;
        uint8_t prefix[recording::kRecordHeadBytes + recording::kFrameFieldBytes];
        recording::encode_record_head(
            {Kind::Frame, index_, e.timeUs, uint32_t(recording::kFrameFieldBytes + kFrameBytes)}, prefix);
        recording::encode_frame_fields(e.frame, prefix + recording::kRecordHeadBytes);
        const uint32_t crc =
            recording::crc32(recording::crc32(0, prefix, sizeof prefix), picture, kFrameBytes);
        uint8_t check[4] = {uint8_t(crc), uint8_t(crc >> 8), uint8_t(crc >> 16), uint8_t(crc >> 24)};
        const iovec parts[3] = {
            {prefix, sizeof prefix}, {const_cast<uint8_t *>(picture), kFrameBytes}, {check, sizeof check}};
        return appended(file_.append(parts, 3, false, why, whySize));
    }

    bool write_dropped(uint32_t frames, uint32_t datagrams, uint64_t timeUs, bool overLimit,
                       char *why = nullptr) {
        uint8_t fields[recording::kDroppedFieldBytes];
        recording::encode_dropped_fields({frames, datagrams}, fields);
        return write_small(Kind::Dropped, timeUs, fields, sizeof fields, nullptr, 0, overLimit, why, 256);
    }

    bool write_small(Kind kind, uint64_t timeUs, const uint8_t *fields, size_t fieldBytes,
                     const uint8_t *bytes, size_t byteCount, bool overLimit, char *why = nullptr,
                     size_t whySize = 0) {
        uint8_t record[recording::kRecordHeadBytes + recording::kDatagramFieldBytes +
                       recording::kMaxDatagramBytes + recording::kRecordCrcBytes];
        const size_t n = recording::encode_small_record({kind, index_, timeUs, 0}, fields, fieldBytes, bytes,
                                                        byteCount, record, sizeof record);
        const iovec part = {record, n};
        char ignored[256];
        return appended(why != nullptr ? file_.append(&part, 1, overLimit, why, whySize)
                                       : file_.append(&part, 1, overLimit, ignored, sizeof ignored));
    }

    bool appended(bool ok) {
        index_ += ok ? 1 : 0;
        return ok;
    }

    Recorder &r_;
    RecordingFile &file_;
    DropReport report_;
    uint64_t index_ = 0;     // of the next record
    bool recording_ = true;  // false once a record could not be written
    uint32_t unwrittenFrames_ = 0,
             unwrittenDatagrams_ = 0;  // dropped here: the last Dropped record holds them
};

// Waits for events, at most until a second from now (the sync's pace).
void wait_for_events(Recorder &r) {
    timespec deadline;
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += 1;
    while (sem_timedwait(&r.wake, &deadline) != 0 && errno == EINTR) {
    }
}

}  // namespace

void *writer_main(void *) {
    prctl(PR_SET_NAME, "faceDet_record");
    Recorder &r = *the_recorder();
    RecordingFile file;
    char why[768];
    if (!file.create(r.settings, monotonic_us(), why, sizeof why)) {
        say("faceDet recorder: cannot record into %s: %s; faceDet runs without recording\n", r.settings.dir,
            why);
        r.state = kOff;
        while (r.events.pop([&r](Event &e) {
            if (e.kind == Kind::Frame) {
                r.slots.give(e.slot);
            }
        })) {
        }
        sem_post(&r.done);
        return nullptr;
    }
    say("faceDet recorder: recording into %s\n", file.directory());
    int expected = kStarting;
    r.state.compare_exchange_strong(expected, kRecording);
    Writer writer(r, file);
    for (;;) {
        const bool stopping = r.stopRequested.load();
        writer.drain();
        file.sync_if_due(monotonic_us());
        if (stopping) {
            break;
        }
        wait_for_events(r);
    }
    // What the daemon's threads do from here on is not recorded.
    r.state = kClosed;
    writer.drain();
    writer.finish();
    file.close();
    sem_post(&r.done);
    return nullptr;
}

}  // namespace recorder
