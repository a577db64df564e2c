/*
 * The platform's clock under each pace, and the camera's cost of the frames
 * the daemon takes. Plain state without locking or threads: the pipeline owns
 * one and calls it under its mutex, and tests drive it directly.
 *
 * Realtime: CLOCK_MONOTONIC; with a frame cost, the next frame is held back
 * until the camera would have finished the last one.
 * Lockstep: the source's timeline. Frame k is stamped k / fps; the clock
 * reads the frame last taken plus the wall time since, below the next frame.
 * Recorded: as lockstep, on the times the camera took the recorded frames.
 * Camera: the source's timeline, on which the consumer's work costs the
 * camera's time. The consumer is busy from each take until the frame's cost
 * has passed; frames that arrive meanwhile wait in the port's queue as on the
 * camera, and the clock reads the consumer's progress through its work.
 */
#ifndef FACEDET_HOST_PACE_CLOCK_H
#define FACEDET_HOST_PACE_CLOCK_H

#include <cstdint>

#include "host_config.h"
#include "mi_common.h"

namespace host {

// The camera's time for one frame the daemon takes, in microseconds.
struct FrameCost {
    MI_U64 analysedUs = 0;  // a frame it analyses (detection, selection, decision and the rest)
    MI_U64 restUs = 0;      // a frame it takes but does not analyse: warm-up, auto framing stopped
};

// ARMv7 instructions of a frame taken but not analysed, as a share of an
// analysed frame's (bench/camera_cost.sh; docs/BENCHMARKS.md, "On the camera").
constexpr double kRestShareOfAnalysedFrame = 0.0109;

// The cost of an analysed frame in milliseconds, and of the rest in that share.
FrameCost frame_cost_from_ms(double analysedMs);

// The contract with the daemon's frame loop (get_stream_thread.cpp, where it
// reads the clock): it reads MI_SYS_GetCurPts at the end of each stage in a
// fixed order, so the number of reads between two takes says what it did
// with a frame. The read before it waits for the next frame counts for the
// frame before. A read more or less in the loop moves every charge below,
// and with it every camera-paced replay and benchmark figure.
namespace frame_loop_reads {
constexpr int kWarmUp = 1;    // the next wait
constexpr int kStopped = 3;   // get frame, autogamma, the next wait
constexpr int kAnalysed = 6;  // get frame, autogamma, invoke, strategies, all, the next wait
// The stage lines that show the charges: the rest in "get frame", the
// analysis in "invoke".
constexpr int kGetFrame = 1;
constexpr int kInvoke = 3;
}  // namespace frame_loop_reads

// Learns what the consumer does with each frame from its clock reads, and
// charges the camera's time for it: the rest at the get-frame read, and the
// analysis at the invoke read when the last frame read past its stopped
// count was analysed, else at the first read past that count, which only an
// analysed frame reaches. So the stage lines show the camera's time in the
// stage that spends it, and a frame after a switch between running and
// stopped costs no more than one analysis too many or sits one stage late.
class CostMeter {
  public:
    explicit CostMeter(FrameCost cost = FrameCost()) : cost_(cost) {}

    // A frame was taken: the reads from now on belong to it.
    void frame_taken();
    // The consumer read the clock: the camera time its work since the last
    // read took. Reads before the first take cost nothing.
    MI_U64 charge_read();
    // Camera time charged since the last take.
    MI_U64 charged() const { return charged_; }

  private:
    FrameCost cost_;
    bool frameHeld_ = false;  // a frame has been taken
    int reads_ = 0;           // clock reads since it was taken
    MI_U64 charged_ = 0;      // time charged since it was taken
    bool analysisCharged_ = false;
    bool expectAnalysis_ = true;  // the last frame read past its second read was analysed
};

// The clock and the frame schedule of one pipeline.
class PaceClock {
  public:
    // fps: the source's rate; cost: the camera's frame cost (camera pace
    // always has one; realtime only when set; lockstep ignores it). Lockstep
    // counts from 0 at wall time `startWallUs` until the first frame.
    PaceClock(Pace pace, double fps, bool hasCost, FrameCost cost, MI_U64 startWallUs);

    Pace pace() const { return pace_; }
    bool has_cost() const { return hasCost_; }

    // The stamp of source frame `index`, queued at wall time `wallUs`.
    MI_U64 frame_stamp(uint64_t index, MI_U64 wallUs) const;

    // Camera pace: may the frame stamped `stampUs` join the port's queue now?
    // Frames arrive once the consumer's time has reached them; when nothing is
    // queued the next one arrives at once, to be taken at its own time.
    bool may_arrive(MI_U64 stampUs, bool nothingQueued) const;
    // Camera pace: every frame stamped up to the consumer's time has arrived
    // when the next one is stamped later.
    bool arrivals_done(MI_U64 nextStampUs) const { return nextStampUs > busyUntilUs_; }

    // The consumer takes the frame stamped `stampUs` at wall time `wallUs`;
    // returns the time it is taken on this pace's clock.
    MI_U64 frame_taken(MI_U64 stampUs, MI_U64 wallUs);

    // MI_SYS_GetCurPts at wall time `wallUs`; a read of the consumer's is
    // charged to its frame.
    MI_U64 read(bool byConsumer, MI_U64 wallUs);

    // The consumer pauses `us` (the daemon's sleeps while stopped or off).
    // True when the pace's clock takes the pause instead of the wall clock:
    // at the camera's pace the consumer is busy that much longer, so the
    // frames that come meanwhile pass through the port's queue as on the
    // camera; in lockstep a pause after a frame taken costs nothing, while
    // one without (off: nothing moves on the clip's timeline) stays on the
    // wall clock, as it does in realtime.
    bool pause(MI_U64 us);
    // Camera pace: the consumer's time.
    MI_U64 consumer_time() const { return busyUntilUs_; }

    // Realtime with a cost: the wall time before which no frame may be
    // taken; 0 without a cost.
    MI_U64 hold_until_us() const;

  private:
    Pace pace_;
    double fps_;
    MI_U64 periodUs_;
    bool hasCost_;
    CostMeter meter_;
    MI_U64 takenStampUs_ = 0;       // lockstep: the stamp of the frame last taken (0 before the first)
    MI_U64 takenWallUs_;            // lockstep and realtime: when it was taken (the start before the first)
    MI_U64 busyUntilUs_ = 0;        // camera: the consumer's time
    bool takenSincePause_ = false;  // lockstep: a frame was taken since the last pause
};

}  // namespace host

#endif
