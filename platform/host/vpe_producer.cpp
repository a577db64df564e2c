/*
 * The producer thread of the emulated VPE: reads channel 0's frame source
 * and queues each frame to the fed ports at the configured pace, decoding
 * outside the pipeline's mutex so that MI calls never wait for a decoder.
 */
#include <cerrno>
#include <chrono>
#include <cstring>
#include <csignal>
#include <exception>

#include <unistd.h>

#include "host_time.h"
#include "vpe_pipeline.h"

namespace host {
namespace {

using Clock = std::chrono::steady_clock;

Clock::duration seconds_to_duration(double seconds) {
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

}  // namespace

// ---- producer ----

void Pipeline::producer_main() {
    try {
        produce();
    } catch (const std::exception &e) {
        std::fprintf(stderr, "host platform: frame producer stopped: %s\n", e.what());
    } catch (...) {
        std::fprintf(stderr, "host platform: frame producer stopped\n");
    }
    // The clip went on without them; the replay reports the count.
    if (const long failed = source_->failed_frames(); failed > 0) {
        std::fprintf(stderr,
                     "host platform: %ld frames of FACEDET_SOURCE could not be decoded and were skipped\n",
                     failed);
    }
}

// Frame `index` of the copy is at index times the picture's size, as the
// frame log names it. A full disk or a write error ends the copy with one
// line, never the clip: whoever reads it finds it short and decodes instead.
void Pipeline::keep_delivered(uint64_t index, const Buffer &shown) {
    if (delivered_ < 0) {
        return;
    }
    const size_t bytes = static_cast<size_t>(shown.width) * shown.height * 3 / 2;
    if (::pwrite(delivered_, shown.data.data(), bytes, static_cast<off_t>(index * bytes)) !=
        static_cast<ssize_t>(bytes)) {
        std::fprintf(stderr, "host platform: FACEDET_DELIVERED_FRAMES stopped: %s\n", std::strerror(errno));
        ::close(delivered_);
        delivered_ = -1;
    }
}

void Pipeline::read_ahead(Ahead &ahead, int width, int height) {
    ahead.ready = true;
    ahead.width = 0;
    ahead.height = 0;
    try {
        ahead.ok = source_->next(width, height);
        if (!ahead.ok && config_.loop && source_->rewind()) {
            ahead.ok = source_->next(width, height);
        }
        if (ahead.ok) {
            ahead.recorded = source_->recorded_time(&ahead.recordedUs);
            const std::vector<std::vector<uint8_t>> &controls = source_->controls_before();
            ahead.controls.resize(controls.size());
            for (size_t i = 0; i < controls.size(); ++i) {
                ahead.controls[i].assign(controls[i].begin(), controls[i].end());
            }
        }
        if (ahead.ok && width > 0 && height > 0) {
            ahead.picture.resize(static_cast<size_t>(width) * height * 3 / 2);  // once: the port's size stays
            source_->render(width, height, ahead.picture.data());
            ahead.width = width;
            ahead.height = height;
        }
    } catch (const std::exception &e) {
        std::fprintf(stderr, "host platform: reading FACEDET_SOURCE failed: %s\n", e.what());
        ahead.ok = false;
    }
}

void Pipeline::produce() {
    std::unique_lock<std::mutex> lk(mu_);
    // The clip starts only when someone takes frames, so it plays from its start.
    wake_.wait(lk, [this] { return stopping_ || any_fed(); });
    // Realtime frames come on the wall clock; the other paces wait for the consumer.
    const bool wallPaced = config_.pace == Pace::Realtime && !source_->live();
    const Clock::duration period = seconds_to_duration(1.0 / source_->fps());
    const Faults &faults = config_.faults;
    bool stallDone = faults.stallSeconds <= 0.0;
    Clock::time_point due = Clock::now();
    uint64_t index = 0;
    int hintWidth = 0;
    int hintHeight = 0;
    std::vector<Target> targets;
    targets.reserve(kVpePorts);
    // Where frames wait for the consumer anyway, the next one is decoded and
    // scaled meanwhile: a video's decoding then overlaps the analysis. Live
    // and wall-paced sources are read when their frame is due, as before.
    const bool readsAhead = !wallPaced && !source_->live();
    Ahead ahead;

    while (!stopping_) {
        if (!stallDone && index == faults.stallAtFrame) {
            stallDone = true;
            wake_.wait_for(lk, seconds_to_duration(faults.stallSeconds), [this] { return stopping_; });
            due = Clock::now();
        }
        if (wallPaced) {
            wake_.wait_until(lk, due, [this] { return stopping_; });
        } else {
            wake_.wait(lk, [this] { return stopping_ || next_frame_may_come(); });
        }
        if (stopping_) {
            break;
        }
        targets.clear();
        for (int port = 0; port < kVpePorts; ++port) {
            if (fed(0, port)) {
                Port &p = channels_[0].ports[port];
                targets.push_back(Target{port, p.generation, reserve(p)});
            }
        }
        if (targets.empty() && hintWidth == 0) {
            // The port that started the clip went away before its first frame.
            wake_.wait(lk, [this] { return stopping_ || any_fed(); });
            continue;
        }
        if (!targets.empty()) {
            const Port &first = channels_[0].ports[targets.front().port];
            hintWidth = first.mode.u16Width;
            hintHeight = first.mode.u16Height;
        }

        lk.unlock();
        if (!ahead.ready) {
            read_ahead(ahead, hintWidth, hintHeight);
        }
        ahead.ready = false;
        bool ok = ahead.ok;
        try {
            for (size_t i = 0; ok && i < targets.size(); ++i) {
                Buffer &b = *targets[i].buffer;
                if (b.width == ahead.width && b.height == ahead.height) {
                    std::memcpy(b.data.data(), ahead.picture.data(), ahead.picture.size());
                } else {
                    source_->render(b.width, b.height, b.data.data());
                }
            }
        } catch (const std::exception &e) {
            std::fprintf(stderr, "host platform: reading FACEDET_SOURCE failed: %s\n", e.what());
            ok = false;
        }
        // The stamp depends on nothing the lock guards; the tap is the producer's own.
        // A recording's frames keep the camera's times.
        const MI_U64 pts = ahead.recorded ? ahead.recordedUs : clock_.frame_stamp(index, monotonic_us());
        if (ok && !targets.empty()) {
            const Buffer &shown = *targets.front().buffer;
            tap_.publish(index, pts, shown.width, shown.height, shown.data.data());
            keep_delivered(index, shown);
        }
        lk.lock();

        if (!ok) {
            for (Target &t : targets) {
                t.buffer->state = Buffer::State::Free;
            }
            targets.clear();
            stats_.sourceEnded = true;
            wake_.notify_all();  // a camera-pace take may wait for this frame
            break;
        }
        for (Target &t : targets) {
            Buffer *b = t.buffer.get();
            if (fed(0, t.port) && channels_[0].ports[t.port].generation == t.generation) {
                b->sourceIndex = index;
                b->pts = pts;
                enqueue(0, t.port, b);
            } else {
                b->state = Buffer::State::Free;  // the port went away meanwhile
            }
        }
        targets.clear();
        for (std::vector<uint8_t> &bytes : ahead.controls) {
            pendingControls_.push_back(PendingControl{index, std::move(bytes)});
        }
        ahead.controls.clear();
        ++index;
        stats_.sourceFrames = index;
        nextStamp_ = clock_.frame_stamp(index, monotonic_us());
        wake_.notify_all();
        if (readsAhead) {
            // While the consumer works on this frame, not after it asks for the next.
            lk.unlock();
            read_ahead(ahead, hintWidth, hintHeight);
            lk.lock();
        }
        due += period;
        const Clock::time_point now = Clock::now();
        if (due + period < now) {
            due = now;  // fell behind (slow decoder): go on at the source rate, no burst
        }
    }

    if (stopping_ || !stats_.sourceEnded || !config_.exitAtEnd) {
        return;
    }
    wake_.wait(lk, [this] { return stopping_ || channel0_idle(); });
    if (stopping_) {
        return;
    }
    lk.unlock();
    ::kill(::getpid(), SIGTERM);
}

}  // namespace host
