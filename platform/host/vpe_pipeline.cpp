/*
 * The emulated VPE pipeline: construction and shutdown, the platform clock,
 * the checks and pacing conditions, and the channels (their ports and
 * descriptors are in vpe_ports.cpp). One mutex guards all channel, port and
 * buffer state; the producer thread (vpe_producer.cpp) holds it except while
 * it decodes and scales a frame into buffers it has reserved.
 */
#include "vpe_pipeline.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "host_time.h"

namespace host {

Pipeline::Pipeline(const Config &config, std::unique_ptr<FrameSource> source, std::FILE *frameLog)
    : config_(config),
      source_(std::move(source)),
      frameLog_(frameLog),
      clock_(config.pace, source_ ? source_->fps() : 30.0, config.hasFrameCost,
             frame_cost_from_ms(config.frameCostMs), monotonic_us()),
      controlDelivery_(config.controlPath) {
    for (Channel &c : channels_) {
        for (Port &p : c.ports) {
            p.queue.reserve(kMaxPortDepth + 1);
        }
    }
    if (!source_) {
        return;
    }
    std::string error;
    if (config_.pace != Pace::Realtime && !config_.clockPath.empty() &&
        !clockFile_.open(config_.clockPath, &error)) {
        std::fprintf(stderr, "host platform: cannot publish the source clock in '%s': %s\n",
                     config_.clockPath.c_str(), error.c_str());
    }
    if (!config_.frameTapPath.empty() && !tap_.open(config_.frameTapPath, &error)) {
        std::fprintf(stderr, "host platform: cannot publish frames in FACEDET_FRAME_TAP '%s': %s\n",
                     config_.frameTapPath.c_str(), error.c_str());
    }
    if (!config_.deliveredPath.empty() &&
        (delivered_ = ::open(config_.deliveredPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)) <
            0) {
        std::fprintf(stderr, "host platform: cannot write FACEDET_DELIVERED_FRAMES '%s': %s\n",
                     config_.deliveredPath.c_str(), std::strerror(errno));
    }
    if (clock_.has_cost()) {
        // Said once, so that a run's log tells what camera it played.
        const FrameCost cost = frame_cost_from_ms(config_.frameCostMs);
        std::fprintf(stderr,
                     "host platform: %s pace, camera time %.1f ms per analysed frame, %.1f ms per frame "
                     "taken but not analysed\n",
                     config_.pace == Pace::Camera ? "camera" : "realtime", cost.analysedUs / 1000.0,
                     cost.restUs / 1000.0);
    }
    channels_[0].exists = true;
    channels_[0].started = true;
    producer_ = std::thread([this] { producer_main(); });
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
        if (delivered_ >= 0) {
            ::close(delivered_);  // the producer has ended
            delivered_ = -1;
        }
        clockFile_.close();
        shutDown_ = true;
    });
}

MI_U64 Pipeline::clock_read() {
    std::unique_lock<std::mutex> lk(mu_);
    if (shutDown_) {
        return monotonic_us();
    }
    const bool byConsumer = consumerKnown_ && std::this_thread::get_id() == consumer_;
    const MI_U64 now = clock_.read(byConsumer, monotonic_us());
    if (!byConsumer || !clock_.has_cost()) {
        return now;
    }
    // The consumer's progress lets frames arrive (camera pace).
    if (config_.pace == Pace::Camera) {
        clockFile_.publish(now);
    }
    lk.unlock();
    wake_.notify_all();
    return now;
}

bool Pipeline::consumer_pause(MI_U64 us) {
    std::unique_lock<std::mutex> lk(mu_);
    if (shutDown_ || stopping_ || !consumerKnown_ || std::this_thread::get_id() != consumer_ ||
        !clock_.pause(us)) {
        return false;
    }
    if (config_.pace != Pace::Camera) {
        return true;
    }
    clockFile_.publish(clock_.consumer_time());
    wake_.notify_all();
    // So that a daemon pausing again and again (off) follows the clip at the
    // decoder's speed instead of racing ahead of it.
    wake_.wait_for(lk, std::chrono::microseconds(us),
                   [this] { return stopping_ || stats_.sourceEnded || clock_.arrivals_done(nextStamp_); });
    return true;
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

// Camera pace: nothing waits in any fed port's queue.
bool Pipeline::fed_queues_empty() const {
    for (int port = 0; port < kVpePorts; ++port) {
        if (fed(0, port) && !channels_[0].ports[port].queue.empty()) {
            return false;
        }
    }
    return true;
}

// May the producer queue the next source frame now?
bool Pipeline::next_frame_may_come() const {
    switch (config_.pace) {
        case Pace::Lockstep:
        case Pace::Recorded:
            return lockstep_ready();
        case Pace::Camera:
            return any_fed() && clock_.may_arrive(nextStamp_, fed_queues_empty());
        case Pace::Realtime:
            break;
    }
    return true;
}

// Camera pace: a frame due by the consumer's time is still to be queued to
// this port, so taking one now would take the wrong one.
bool Pipeline::arrivals_pending(int chn, int port) const {
    return config_.pace == Pace::Camera && chn == 0 && fed(chn, port) && !stats_.sourceEnded &&
           !clock_.arrivals_done(nextStamp_);
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

PipelineStats Pipeline::stats() const {
    std::lock_guard<std::mutex> lk(mu_);
    return stats_;
}

}  // namespace host
