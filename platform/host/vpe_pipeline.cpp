/*
 * The emulated VPE pipeline. One mutex guards all channel, port and buffer
 * state; the producer thread holds it except while it decodes and scales a
 * frame into buffers it has reserved (state Filling), so MI calls never wait
 * for a decoder.
 *
 * Buffers: each port has a pool that grows only when every buffer is queued,
 * held or being filled, so the steady state allocates nothing. A held buffer
 * is never reused before it is given back.
 */
#include "vpe_pipeline.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <exception>

#include <sys/eventfd.h>
#include <unistd.h>

#include "host_time.h"

namespace host {
namespace {

using Clock = std::chrono::steady_clock;

Clock::duration seconds_to_duration(double seconds) {
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

}  // namespace

Pipeline::Pipeline(const Config &config, std::unique_ptr<FrameSource> source, std::FILE *frameLog)
    : config_(config), source_(std::move(source)), frameLog_(frameLog) {
    for (Channel &c : channels_) {
        for (Port &p : c.ports) {
            p.queue.reserve(kMaxPortDepth + 1);
        }
    }
    if (source_ && config_.pace == Pace::Lockstep) {
        source_clock_start(source_frame_time(1, source_->fps()));
        std::string error;
        if (!config_.clockPath.empty() && !clockFile_.open(config_.clockPath, &error)) {
            std::fprintf(stderr, "host platform: cannot publish the source clock in '%s': %s\n",
                         config_.clockPath.c_str(), error.c_str());
        }
    } else {
        source_clock_stop();
    }
    if (source_) {
        channels_[0].exists = true;
        channels_[0].started = true;
        producer_ = std::thread([this] { producer_main(); });
    }
}

Pipeline::~Pipeline() {
    shutdown();
}

void Pipeline::shutdown() {
    std::call_once(shutdownOnce_, [this] {
        {
            std::lock_guard<std::mutex> lk(mu_);
            stopping_ = true;
        }
        wake_.notify_all();
        // Prompt: every producer wait is on wake_. Only a blocking V4L2 read
        // in progress is waited for, about one frame period.
        if (producer_.joinable()) {
            producer_.join();
        }
        std::lock_guard<std::mutex> lk(mu_);
        for (int chn = 0; chn < kVpeChannels; ++chn) {
            for (int port = 0; port < kVpePorts; ++port) {
                drop_queued(chn, port);
                Port &p = channels_[chn].ports[port];
                for (int fd : p.fds) {
                    ::close(fd);
                }
                p = Port();
            }
            channels_[chn].exists = false;
            channels_[chn].started = false;
        }
        if (frameLog_) {
            std::fclose(frameLog_);
            frameLog_ = nullptr;
        }
        if (config_.pace == Pace::Lockstep) {
            source_clock_stop();
        }
        clockFile_.close();
        shutDown_ = true;
    });
}

// ---- checks (mu_ held) ----

int Pipeline::check_channel(int chn) const {
    if (stopped()) {
        return E_MI_ERR_NOT_INIT;
    }
    if (chn < 0 || chn >= kVpeChannels) {
        return E_MI_ERR_INVALID_CHNID;
    }
    if (!channels_[chn].exists) {
        return E_MI_ERR_UNEXIST;
    }
    return 0;
}

int Pipeline::check_port(int chn, int port) const {
    if (const int err = check_channel(chn)) {
        return err;
    }
    return (port < 0 || port >= kVpePorts) ? E_MI_ERR_ILLEGAL_PARAM : 0;
}

int Pipeline::check_chn_port(const MI_SYS_ChnPort_t &p) const {
    if (stopped()) {
        return E_MI_ERR_NOT_INIT;
    }
    if (p.eModId != E_MI_MODULE_ID_VPE) {
        return E_MI_ERR_ILLEGAL_PARAM;
    }
    if (p.u32DevId != 0) {
        return E_MI_ERR_INVALID_DEVID;
    }
    if (p.u32ChnId >= static_cast<MI_U32>(kVpeChannels)) {
        return E_MI_ERR_INVALID_CHNID;
    }
    if (p.u32PortId >= static_cast<MI_U32>(kVpePorts)) {
        return E_MI_ERR_ILLEGAL_PARAM;
    }
    return check_channel(static_cast<int>(p.u32ChnId));
}

// A port is fed when frames may be queued to it.
bool Pipeline::fed(int chn, int port) const {
    const Channel &c = channels_[chn];
    const Port &p = c.ports[port];
    return c.exists && c.started && p.enabled && p.userDepth > 0 && p.queueDepth > 0;
}

bool Pipeline::any_fed() const {
    for (int port = 0; port < kVpePorts; ++port) {
        if (fed(0, port)) {
            return true;
        }
    }
    return false;
}

bool Pipeline::channel0_idle() const {
    for (const Port &p : channels_[0].ports) {
        if (!p.queue.empty() || p.held > 0) {
            return false;
        }
    }
    return true;
}

// Lockstep: every fed port has given its last frame back and has none queued.
bool Pipeline::lockstep_ready() const {
    if (!any_fed()) {
        return false;
    }
    for (int port = 0; port < kVpePorts; ++port) {
        const Port &p = channels_[0].ports[port];
        if (fed(0, port) && (!p.queue.empty() || p.held > 0)) {
            return false;
        }
    }
    return true;
}

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
        Buffer *oldest = p.queue.front();
        p.queue.erase(p.queue.begin());
        log_fate(*oldest, "dropped", chn, port);
        oldest->state = Buffer::State::Free;
    }
    p.queue.push_back(b);
    b->state = Buffer::State::Queued;
    if (wasEmpty) {
        signal_fds(p);
    }
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

// ---- channels ----

int Pipeline::create_channel(int chn) {
    std::lock_guard<std::mutex> lk(mu_);
    if (stopped()) {
        return E_MI_ERR_NOT_INIT;
    }
    if (chn < 0 || chn >= kVpeChannels) {
        return E_MI_ERR_INVALID_CHNID;
    }
    if (channels_[chn].exists) {
        return E_MI_ERR_EXIST;
    }
    channels_[chn].exists = true;
    channels_[chn].started = false;
    return 0;
}

int Pipeline::destroy_channel(int chn) {
    {
        std::lock_guard<std::mutex> lk(mu_);
        if (const int err = check_channel(chn)) {
            return err;
        }
        Channel &c = channels_[chn];
        for (const Port &p : c.ports) {
            if (p.enabled || p.held > 0) {
                return E_MI_ERR_BUSY;  // disable the ports and give frames back first
            }
        }
        for (Port &p : c.ports) {
            // Descriptors stay open until MI_SYS_CloseFd: they belong to the caller.
            std::vector<int> fds = std::move(p.fds);
            const uint64_t generation = p.generation + 1;
            p = Port();
            p.queue.reserve(kMaxPortDepth + 1);
            p.fds = std::move(fds);
            p.generation = generation;
        }
        c.exists = false;
        c.started = false;
    }
    wake_.notify_all();
    return 0;
}

int Pipeline::start_channel(int chn) {
    {
        std::lock_guard<std::mutex> lk(mu_);
        if (const int err = check_channel(chn)) {
            return err;
        }
        channels_[chn].started = true;
    }
    wake_.notify_all();
    return 0;
}

int Pipeline::stop_channel(int chn) {
    {
        std::lock_guard<std::mutex> lk(mu_);
        if (const int err = check_channel(chn)) {
            return err;
        }
        channels_[chn].started = false;
        // Frames being filled are not queued; frames already queued stay takeable.
        for (Port &p : channels_[chn].ports) {
            ++p.generation;
        }
    }
    wake_.notify_all();
    return 0;
}

// ---- ports ----

int Pipeline::get_port_mode(int chn, int port, MI_VPE_PortMode_t *mode, MI_S32 *faultCode) {
    std::lock_guard<std::mutex> lk(mu_);
    if (stopped()) {
        return E_MI_ERR_NOT_INIT;
    }
    if (config_.faults.portmodeFail && !portmodeFaultUsed_) {
        portmodeFaultUsed_ = true;
        *faultCode = config_.faults.portmodeFailCode;
        return -1;
    }
    if (!mode) {
        return E_MI_ERR_NULL_PTR;
    }
    if (const int err = check_port(chn, port)) {
        return err;
    }
    *mode = channels_[chn].ports[port].mode;
    return 0;
}

int Pipeline::set_port_mode(int chn, int port, const MI_VPE_PortMode_t &mode) {
    std::lock_guard<std::mutex> lk(mu_);
    if (const int err = check_port(chn, port)) {
        return err;
    }
    Port &p = channels_[chn].ports[port];
    if (p.enabled) {
        return E_MI_ERR_NOT_PERM;
    }
    if (mode.ePixelFormat != E_MI_SYS_PIXEL_FRAME_YUV_SEMIPLANAR_420 ||
        mode.eCompressMode != E_MI_SYS_COMPRESS_MODE_NONE) {
        return E_MI_ERR_NOT_SUPPORT;
    }
    const int w = mode.u16Width;
    const int h = mode.u16Height;
    // NV12 chroma is subsampled 2x2, so odd sizes cannot be represented.
    if (w == 0 || h == 0 || w % 2 != 0 || h % 2 != 0 || w > kMaxPortWidth || h > kMaxPortHeight) {
        return E_MI_ERR_ILLEGAL_PARAM;
    }
    p.mode = mode;
    return 0;
}

int Pipeline::enable_port(int chn, int port) {
    {
        std::lock_guard<std::mutex> lk(mu_);
        if (const int err = check_port(chn, port)) {
            return err;
        }
        Port &p = channels_[chn].ports[port];
        if (p.enabled) {
            return 0;
        }
        if (p.mode.u16Width == 0 || p.mode.u16Height == 0) {
            return E_MI_ERR_NOT_CONFIG;
        }
        p.enabled = true;
        ++p.generation;
    }
    wake_.notify_all();
    return 0;
}

int Pipeline::disable_port(int chn, int port) {
    {
        std::lock_guard<std::mutex> lk(mu_);
        if (const int err = check_port(chn, port)) {
            return err;
        }
        Port &p = channels_[chn].ports[port];
        if (!p.enabled) {
            return 0;
        }
        drop_queued(chn, port);
        p.enabled = false;
        ++p.generation;
    }
    wake_.notify_all();
    return 0;
}

int Pipeline::set_depth(const MI_SYS_ChnPort_t &cp, MI_U32 userDepth, MI_U32 queueDepth) {
    {
        std::lock_guard<std::mutex> lk(mu_);
        if (const int err = check_chn_port(cp)) {
            return err;
        }
        if (userDepth > kMaxPortDepth || queueDepth > kMaxPortDepth) {
            return E_MI_ERR_ILLEGAL_PARAM;
        }
        const int chn = static_cast<int>(cp.u32ChnId);
        const int port = static_cast<int>(cp.u32PortId);
        Port &p = channels_[chn].ports[port];
        p.userDepth = userDepth;
        p.queueDepth = queueDepth;
        if (!fed(chn, port)) {
            drop_queued(chn, port);  // user depth 0: the port delivers nothing
            ++p.generation;
        } else {
            while (p.queue.size() > queueDepth) {
                Buffer *oldest = p.queue.front();
                p.queue.erase(p.queue.begin());
                log_fate(*oldest, "dropped", chn, port);
                oldest->state = Buffer::State::Free;
            }
        }
    }
    wake_.notify_all();
    return 0;
}

// ---- descriptors ----

int Pipeline::get_fd(const MI_SYS_ChnPort_t &cp, MI_S32 *fd) {
    std::lock_guard<std::mutex> lk(mu_);
    if (const int err = check_chn_port(cp)) {
        return err;
    }
    Port &p = channels_[cp.u32ChnId].ports[cp.u32PortId];
    if (!p.enabled) {
        return E_MI_ERR_NOT_ENABLE;
    }
    if (config_.faults.getfdFail) {
        return E_MI_ERR_FAILED;
    }
    const int efd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (efd < 0) {
        return E_MI_ERR_NOMEM;
    }
    p.fds.push_back(efd);
    if (!p.queue.empty()) {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t n = ::write(efd, &one, sizeof one);
    }
    *fd = efd;
    return 0;
}

int Pipeline::close_fd(MI_S32 fd) {
    std::lock_guard<std::mutex> lk(mu_);
    if (stopped()) {
        return E_MI_ERR_NOT_INIT;
    }
    for (Channel &c : channels_) {
        for (Port &p : c.ports) {
            auto it = std::find(p.fds.begin(), p.fds.end(), fd);
            if (it != p.fds.end()) {
                p.fds.erase(it);
                ::close(fd);
                return 0;
            }
        }
    }
    return E_MI_ERR_ILLEGAL_PARAM;  // not ours: never close a descriptor we did not create
}

// ---- frames ----

int Pipeline::get_buf(const MI_SYS_ChnPort_t &cp, MI_SYS_BufInfo_t *info, MI_SYS_BUF_HANDLE *handle) {
    {
        std::lock_guard<std::mutex> lk(mu_);
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
        Buffer *b = p.queue.front();
        p.queue.erase(p.queue.begin());
        if (p.queue.empty()) {
            drain_fds(p);
        }
        b->state = Buffer::State::Held;
        b->handle = nextHandle_;
        nextHandle_ = nextHandle_ == INT32_MAX ? 1 : nextHandle_ + 1;
        ++p.held;
        log_fate(*b, "taken", chn, port);
        if (config_.pace == Pace::Lockstep) {
            source_clock_frame(b->pts);
            clockFile_.publish(b->pts);
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
    wake_.notify_all();
    return 0;
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

PipelineStats Pipeline::stats() const {
    std::lock_guard<std::mutex> lk(mu_);
    return stats_;
}

// ---- producer ----

void Pipeline::producer_main() {
    try {
        produce();
    } catch (const std::exception &e) {
        std::fprintf(stderr, "host platform: frame producer stopped: %s\n", e.what());
    } catch (...) {
        std::fprintf(stderr, "host platform: frame producer stopped\n");
    }
}

void Pipeline::produce() {
    std::unique_lock<std::mutex> lk(mu_);
    // The clip starts only when someone takes frames, so it plays from its start.
    wake_.wait(lk, [this] { return stopping_ || any_fed(); });
    const bool lockstep = config_.pace == Pace::Lockstep;
    const bool live = source_->live();
    const Clock::duration period = seconds_to_duration(1.0 / source_->fps());
    const Faults &faults = config_.faults;
    bool stallDone = faults.stallSeconds <= 0.0;
    Clock::time_point due = Clock::now();
    uint64_t index = 0;
    int hintWidth = 0;
    int hintHeight = 0;
    std::vector<Target> targets;
    targets.reserve(kVpePorts);

    while (!stopping_) {
        if (!stallDone && index == faults.stallAtFrame) {
            stallDone = true;
            wake_.wait_for(lk, seconds_to_duration(faults.stallSeconds), [this] { return stopping_; });
            due = Clock::now();
        }
        if (lockstep) {
            wake_.wait(lk, [this] { return stopping_ || lockstep_ready(); });
        } else if (!live) {
            wake_.wait_until(lk, due, [this] { return stopping_; });
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
        bool ok = false;
        try {
            ok = source_->next(hintWidth, hintHeight);
            if (!ok && config_.loop && source_->rewind()) {
                ok = source_->next(hintWidth, hintHeight);
            }
            for (size_t i = 0; ok && i < targets.size(); ++i) {
                Buffer &b = *targets[i].buffer;
                source_->render(b.width, b.height, b.data.data());
            }
        } catch (const std::exception &e) {
            std::fprintf(stderr, "host platform: reading FACEDET_SOURCE failed: %s\n", e.what());
            ok = false;
        }
        lk.lock();

        if (!ok) {
            for (Target &t : targets) {
                t.buffer->state = Buffer::State::Free;
            }
            targets.clear();
            stats_.sourceEnded = true;
            break;
        }
        // Lockstep frames carry the source's own time, realtime ones the wall clock.
        const MI_U64 pts = lockstep ? source_frame_time(index, source_->fps()) : monotonic_us();
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
        ++index;
        stats_.sourceFrames = index;
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
