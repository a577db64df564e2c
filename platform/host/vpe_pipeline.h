/*
 * The emulated media pipeline: VPE channels (vpe_pipeline.cpp) and their output
 * ports (vpe_ports.cpp), the per-port frame queues and buffer pools with the
 * descriptors that signal a queued frame (vpe_port_queue.cpp), and the
 * producer thread that feeds channel 0 from the frame source at the
 * configured pace (vpe_producer.cpp).
 *
 * Thread-safe: every public method may be called from any thread while the
 * producer runs. Methods return 0 or an MI error identifier (MI_ErrCode_e);
 * the MI entry points add the module to make the full code.
 */
#ifndef FACEDET_HOST_VPE_PIPELINE_H
#define FACEDET_HOST_VPE_PIPELINE_H

#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "control_delivery.h"
#include "frame_source.h"
#include "frame_tap.h"
#include "host_config.h"
#include "mi_sys_datatype.h"
#include "mi_vpe.h"
#include "pace_clock.h"
#include "source_clock.h"

namespace host {

constexpr int kVpeChannels = 4;
constexpr int kVpePorts = 4;
// A port queue or a user may hold at most this many frames: more would only
// hide a consumer that never gives frames back.
constexpr MI_U32 kMaxPortDepth = 16;
// The largest port a VPE scaler emulated here produces.
constexpr int kMaxPortWidth = 4096;
constexpr int kMaxPortHeight = 4096;

// Counters for tests.
struct PipelineStats {
    uint64_t sourceFrames = 0;  // source frames read so far, across loops
    bool sourceEnded = false;   // the clip ended (no loop)
};

class Pipeline {
  public:
    // source feeds channel 0, which then exists and runs; null: channel 0
    // does not exist. frameLog (may be null) is owned and closed here.
    Pipeline(const Config &config, std::unique_ptr<FrameSource> source, std::FILE *frameLog);
    ~Pipeline();
    Pipeline(const Pipeline &) = delete;
    Pipeline &operator=(const Pipeline &) = delete;

    // Stops the producer, drops queued frames, closes descriptors and frees
    // the buffers. Afterwards every call fails with E_MI_ERR_NOT_INIT.
    void shutdown();

    int create_channel(int chn);
    int destroy_channel(int chn);
    int start_channel(int chn);
    int stop_channel(int chn);

    // The first call may fail with the configured code instead (a fault);
    // *faultCode is then set and the result is -1.
    int get_port_mode(int chn, int port, MI_VPE_PortMode_t *mode, MI_S32 *faultCode);
    int set_port_mode(int chn, int port, const MI_VPE_PortMode_t &mode);
    int enable_port(int chn, int port);
    int disable_port(int chn, int port);

    int set_depth(const MI_SYS_ChnPort_t &port, MI_U32 userDepth, MI_U32 queueDepth);
    int get_fd(const MI_SYS_ChnPort_t &port, MI_S32 *fd);
    int close_fd(MI_S32 fd);
    int get_buf(const MI_SYS_ChnPort_t &port, MI_SYS_BufInfo_t *info, MI_SYS_BUF_HANDLE *handle);
    int put_buf(MI_SYS_BUF_HANDLE handle);

    // MI_SYS_GetCurPts: the clock of the configured pace. A read by the
    // thread that took the last frame counts as its progress (camera pace).
    MI_U64 clock_read();

    // The daemon's own pause of `us` on the calling thread (host_sleep.cpp).
    // True when the pace's clock took it and the caller must not sleep on
    // the wall clock (pace_clock.h: PaceClock::pause): only the consumer's
    // pauses, in lockstep and at the camera's pace. At the camera's pace it
    // returns once the frames due meanwhile have come, within `us` of wall time.
    bool consumer_pause(MI_U64 us);

    PipelineStats stats() const;

  private:
    struct Buffer {
        enum class State { Free, Filling, Queued, Held };
        std::vector<uint8_t> data;  // NV12 of width x height; written only while Filling
        State state = State::Free;
        int width = 0;
        int height = 0;
        uint64_t sourceIndex = 0;
        MI_U64 pts = 0;
        MI_SYS_BUF_HANDLE handle = 0;
    };

    struct Port {
        MI_VPE_PortMode_t mode{0, 0, E_MI_SYS_PIXEL_FRAME_YUV_SEMIPLANAR_420, E_MI_SYS_COMPRESS_MODE_NONE};
        bool enabled = false;
        MI_U32 userDepth = 0;
        MI_U32 queueDepth = 0;
        // Bumped whenever a frame being filled for this port must no longer
        // be queued to it (disable, depth change, channel stop or destroy).
        uint64_t generation = 0;
        // Buffers are shared with the producer while it fills one outside the
        // lock, so that destroying the channel cannot free it under its feet.
        std::vector<std::shared_ptr<Buffer>> pool;
        std::vector<Buffer *> queue;  // oldest first; capacity kept, so no allocation per frame
        MI_U32 held = 0;              // buffers the user holds
        std::vector<int> fds;         // eventfds readable while the queue is not empty
    };

    struct Channel {
        bool exists = false;
        bool started = false;
        Port ports[kVpePorts];
    };

    // A buffer the producer fills for one port, outside the lock.
    struct Target {
        int port = 0;
        uint64_t generation = 0;
        std::shared_ptr<Buffer> buffer;
    };

    // Everything below is called with mu_ held.
    int check_channel(int chn) const;
    int check_port(int chn, int port) const;
    int check_chn_port(const MI_SYS_ChnPort_t &p) const;
    bool fed(int chn, int port) const;
    bool any_fed() const;
    bool channel0_idle() const;
    bool lockstep_ready() const;
    bool fed_queues_empty() const;
    bool next_frame_may_come() const;
    bool arrivals_pending(int chn, int port) const;
    std::shared_ptr<Buffer> reserve(Port &p);
    void enqueue(int chn, int port, Buffer *b);
    void drop_queued(int chn, int port);
    void drop_oldest(int chn, int port);
    void log_fate(const Buffer &b, const char *fate, int chn, int port);
    void signal_fds(Port &p);
    void drain_fds(Port &p);
    void take_front(int chn, int port, MI_SYS_BufInfo_t *info, MI_SYS_BUF_HANDLE *handle);
    bool stopped() const { return stopping_ || shutDown_; }

    void producer_main();
    void produce();
    void keep_delivered(uint64_t index, const Buffer &shown);
    // The producer's next picture of the source, read before it is due.
    struct Ahead {
        bool ready = false;         // read, and not yet delivered
        bool ok = false;            // false: the source has ended (or failed)
        int width = 0, height = 0;  // of `picture`; 0: not scaled yet
        std::vector<uint8_t> picture;
        bool recorded = false;  // a recording's frame: its time and the controls before it
        uint64_t recordedUs = 0;
        std::vector<std::vector<uint8_t>> controls;
    };
    void read_ahead(Ahead &ahead, int width, int height);
    // Recorded pace: the control datagrams that came before the frame at the
    // front of the port, handed to the daemon before it gets the frame.
    struct PendingControl {
        uint64_t beforeIndex = 0;  // the source frame they came before
        std::vector<uint8_t> bytes;
    };
    bool controls_due(const Port &p) const;
    void deliver_controls(std::unique_lock<std::mutex> &lk, const Port &p);

    const Config config_;
    std::unique_ptr<FrameSource> source_;  // used by the producer thread only
    FrameTapWriter tap_;                   // the producer's too
    int delivered_ = -1;                   // the producer's too: FACEDET_DELIVERED_FRAMES
    std::thread producer_;
    std::once_flag shutdownOnce_;

    mutable std::mutex mu_;  // guards every member below
    // The producer and a paced take wait on it; notified on every state change.
    std::condition_variable wake_;
    Channel channels_[kVpeChannels];
    bool stopping_ = false;  // the producer must return
    bool shutDown_ = false;  // everything freed; calls fail
    std::FILE *frameLog_;
    PaceClock clock_;
    ClockFile clockFile_;  // lockstep and camera with a clock path: the source time for other processes
    // The stamp of the next source frame, once known; camera pace takes wait
    // until every frame due by the consumer's time has been queued.
    MI_U64 nextStamp_ = 0;
    bool consumerKnown_ = false;
    std::thread::id consumer_;  // the thread that took the last frame
    MI_SYS_BUF_HANDLE nextHandle_ = 1;
    uint64_t getbufCalls_ = 0;
    uint64_t putbufCalls_ = 0;
    bool portmodeFaultUsed_ = false;
    PipelineStats stats_;
    std::vector<PendingControl> pendingControls_;  // oldest first
    std::vector<PendingControl> delivering_;       // the consumer's, outside the lock
    ControlDelivery controlDelivery_;              // the consumer's only
};

}  // namespace host

#endif
