/*
 * The port queues of the emulated VPE: buffer pools, queueing with the
 * port's depths, the descriptors that poll readable while a frame is queued,
 * and taking and giving back frames. Everything here runs under the
 * pipeline's mutex.
 *
 * Buffers: each port has a pool that grows only when every buffer is queued,
 * held or being filled, so the steady state allocates nothing. A held buffer
 * is never reused before it is given back.
 */
#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>
#include <cstring>

#include "host_time.h"
#include "vpe_pipeline.h"

namespace host {

// ---- buffers and queues (mu_ held) ----

std::shared_ptr<Pipeline::Buffer> Pipeline::reserve(Port &p) {
    const int w = p.mode.u16Width;
    const int h = p.mode.u16Height;
    std::shared_ptr<Buffer> found;
    for (const std::shared_ptr<Buffer> &b : p.pool) {
        if (b->state == Buffer::State::Free) {
            found = b;
            break;
        }
    }
    if (!found) {
        found = std::make_shared<Buffer>();
        p.pool.push_back(found);
    }
    if (found->width != w || found->height != h) {
        found->data.assign(static_cast<size_t>(w) * h * 3 / 2, 0);
        found->width = w;
        found->height = h;
    }
    found->state = Buffer::State::Filling;
    return found;
}

void Pipeline::enqueue(int chn, int port, Buffer *b) {
    Port &p = channels_[chn].ports[port];
    const bool wasEmpty = p.queue.empty();
    // A full queue keeps the newest frames, as a camera that cannot wait.
    while (!p.queue.empty() && p.queue.size() >= p.queueDepth) {
        drop_oldest(chn, port);
    }
    p.queue.push_back(b);
    b->state = Buffer::State::Queued;
    if (wasEmpty) {
        signal_fds(p);
    }
}

void Pipeline::drop_oldest(int chn, int port) {
    Port &p = channels_[chn].ports[port];
    Buffer *oldest = p.queue.front();
    p.queue.erase(p.queue.begin());
    log_fate(*oldest, "dropped", chn, port);
    oldest->state = Buffer::State::Free;
}

void Pipeline::drop_queued(int chn, int port) {
    Port &p = channels_[chn].ports[port];
    for (Buffer *b : p.queue) {
        log_fate(*b, "dropped", chn, port);
        b->state = Buffer::State::Free;
    }
    p.queue.clear();
    drain_fds(p);
}

void Pipeline::log_fate(const Buffer &b, const char *fate, int chn, int port) {
    if (!frameLog_) {
        return;
    }
    std::fprintf(frameLog_, "%llu %llu %s %d.%d\n", static_cast<unsigned long long>(b.sourceIndex),
                 static_cast<unsigned long long>(b.pts), fate, chn, port);
    // Replay tools read the log live or after the process was killed.
    std::fflush(frameLog_);
}

// The eventfd counters are non-zero exactly while the queue is not empty:
// written on the first queued frame, drained when the last one leaves.
void Pipeline::signal_fds(Port &p) {
    for (int fd : p.fds) {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t n = ::write(fd, &one, sizeof one);
    }
}

void Pipeline::drain_fds(Port &p) {
    for (int fd : p.fds) {
        uint64_t value = 0;
        [[maybe_unused]] const ssize_t n = ::read(fd, &value, sizeof value);
    }
}

// ---- frames ----

int Pipeline::get_buf(const MI_SYS_ChnPort_t &cp, MI_SYS_BufInfo_t *info, MI_SYS_BUF_HANDLE *handle) {
    {
        std::unique_lock<std::mutex> lk(mu_);
        if (stopped()) {
            return E_MI_ERR_NOT_INIT;
        }
        ++getbufCalls_;
        const Faults &f = config_.faults;
        if (getbufCalls_ == f.getbufFailAt || (f.getbufFailEvery && getbufCalls_ % f.getbufFailEvery == 0)) {
            return E_MI_ERR_FAILED;  // the frame stays queued
        }
        if (const int err = check_chn_port(cp)) {
            return err;
        }
        const int chn = static_cast<int>(cp.u32ChnId);
        const int port = static_cast<int>(cp.u32PortId);
        // Camera pace: the frames that came while the consumer was busy are
        // queued first (the producer decodes them), so the one taken is the
        // one the camera's port would hand out. A short wait for a decoder.
        wake_.wait(lk, [&] { return stopped() || !arrivals_pending(chn, port); });
        // Realtime with a cost: the camera is still busy with the last frame
        // until its cost has passed; frames keep coming into the queue. Only
        // now is that cost known: the consumer has read the clock through
        // all of its work on the frame.
        for (MI_U64 now = monotonic_us(), until = clock_.hold_until_us(); now < until && !stopped();
             now = monotonic_us()) {
            wake_.wait_for(lk, std::chrono::microseconds(until - now));
        }
        if (stopped()) {
            return E_MI_ERR_NOT_INIT;
        }
        Port &p = channels_[chn].ports[port];
        if (!p.enabled) {
            return E_MI_ERR_NOT_ENABLE;
        }
        if (p.queue.empty()) {
            return E_MI_ERR_BUF_EMPTY;
        }
        if (p.held >= p.userDepth) {
            return E_MI_ERR_NOBUF;  // the user already holds as many frames as allowed
        }
        if (controls_due(p)) {
            deliver_controls(lk, p);
            if (stopped()) {
                return E_MI_ERR_NOT_INIT;
            }
            if (!p.enabled || p.queue.empty()) {
                return E_MI_ERR_BUF_EMPTY;
            }
        }
        take_front(chn, port, info, handle);
    }
    wake_.notify_all();
    return 0;
}

// Recorded pace: control datagrams came before the frame at the port's front (mu_ held).
bool Pipeline::controls_due(const Port &p) const {
    return !pendingControls_.empty() && !p.queue.empty() &&
           pendingControls_.front().beforeIndex <= p.queue.front()->sourceIndex;
}

// Hands them to the daemon's control socket with the lock let go, since the
// daemon's control thread must run to take them; the frame stays queued.
void Pipeline::deliver_controls(std::unique_lock<std::mutex> &lk, const Port &p) {
    const uint64_t frameIndex = p.queue.front()->sourceIndex;
    delivering_.clear();
    size_t due = 0;
    while (due < pendingControls_.size() && pendingControls_[due].beforeIndex <= frameIndex) {
        delivering_.push_back(std::move(pendingControls_[due]));
        ++due;
    }
    pendingControls_.erase(pendingControls_.begin(), pendingControls_.begin() + static_cast<long>(due));
    lk.unlock();
    for (const PendingControl &control : delivering_) {
        controlDelivery_.deliver(control.bytes.data(), control.bytes.size());
    }
    lk.lock();
}

// Hands out the oldest queued frame of the port (mu_ held).
void Pipeline::take_front(int chn, int port, MI_SYS_BufInfo_t *info, MI_SYS_BUF_HANDLE *handle) {
    Port &p = channels_[chn].ports[port];
    Buffer *b = p.queue.front();
    p.queue.erase(p.queue.begin());
    const MI_U64 takenAt = clock_.frame_taken(b->pts, monotonic_us());
    consumer_ = std::this_thread::get_id();
    consumerKnown_ = true;
    if (p.queue.empty()) {
        drain_fds(p);
    }
    b->state = Buffer::State::Held;
    b->handle = nextHandle_;
    nextHandle_ = nextHandle_ == INT32_MAX ? 1 : nextHandle_ + 1;
    ++p.held;
    log_fate(*b, "taken", chn, port);
    if (config_.pace != Pace::Realtime) {
        clockFile_.publish(takenAt);
    }

    std::memset(info, 0, sizeof *info);
    info->u64Pts = b->pts;
    info->eBufType = E_MI_SYS_BUFDATA_FRAME;
    info->bEndOfStream = MI_FALSE;
    MI_SYS_FrameData_t &fd = info->stFrameData;
    fd.ePixelFormat = E_MI_SYS_PIXEL_FRAME_YUV_SEMIPLANAR_420;
    fd.eCompressMode = E_MI_SYS_COMPRESS_MODE_NONE;
    fd.u16Width = static_cast<MI_U16>(b->width);
    fd.u16Height = static_cast<MI_U16>(b->height);
    const size_t luma = static_cast<size_t>(b->width) * b->height;
    fd.pVirAddr[0] = b->data.data();
    fd.pVirAddr[1] = b->data.data() + luma;
    fd.u32Stride[0] = static_cast<MI_U32>(b->width);
    fd.u32Stride[1] = static_cast<MI_U32>(b->width);
    fd.u32BufSize = static_cast<MI_U32>(b->data.size());
    *handle = b->handle;
}

int Pipeline::put_buf(MI_SYS_BUF_HANDLE handle) {
    bool reportFailure = false;
    {
        std::lock_guard<std::mutex> lk(mu_);
        if (stopped()) {
            return E_MI_ERR_NOT_INIT;
        }
        ++putbufCalls_;
        bool found = false;
        for (Channel &c : channels_) {
            for (Port &p : c.ports) {
                for (const std::shared_ptr<Buffer> &b : p.pool) {
                    if (b->state == Buffer::State::Held && b->handle == handle) {
                        b->state = Buffer::State::Free;
                        b->handle = 0;
                        --p.held;
                        found = true;
                        break;
                    }
                }
                if (found) {
                    break;
                }
            }
            if (found) {
                break;
            }
        }
        if (!found) {
            return E_MI_ERR_ILLEGAL_PARAM;  // unknown handle, or given back twice
        }
        // The injected failure only reports an error: the buffer is released
        // all the same, so a caller that merely logs it keeps running.
        reportFailure = config_.faults.putbufFailEvery && putbufCalls_ % config_.faults.putbufFailEvery == 0;
    }
    wake_.notify_all();
    return reportFailure ? E_MI_ERR_FAILED : 0;
}

}  // namespace host
