#include "pace_clock.h"

#include <algorithm>
#include <cmath>

#include "source_clock.h"

namespace host {

FrameCost frame_cost_from_ms(double analysedMs) {
    FrameCost cost;
    cost.analysedUs = static_cast<MI_U64>(std::llround(analysedMs * 1000.0));
    cost.restUs = static_cast<MI_U64>(std::llround(analysedMs * 1000.0 * kRestShareOfAnalysedFrame));
    return cost;
}

void CostMeter::frame_taken() {
    // A warm-up frame says nothing about running or stopped.
    if (reads_ > frame_loop_reads::kStopped) {
        expectAnalysis_ = true;
    } else if (reads_ > frame_loop_reads::kWarmUp) {
        expectAnalysis_ = false;
    }
    frameHeld_ = true;
    reads_ = 0;
    charged_ = 0;
    analysisCharged_ = false;
}

MI_U64 CostMeter::charge_read() {
    if (!frameHeld_) {
        return 0;
    }
    ++reads_;
    MI_U64 charge = 0;
    if (reads_ == frame_loop_reads::kGetFrame) {
        charge = cost_.restUs;
    } else if (!analysisCharged_ && ((reads_ == frame_loop_reads::kInvoke && expectAnalysis_) ||
                                     reads_ == frame_loop_reads::kStopped + 1)) {
        charge = cost_.analysedUs > cost_.restUs ? cost_.analysedUs - cost_.restUs : 0;
        analysisCharged_ = true;
    }
    charged_ += charge;
    return charge;
}

PaceClock::PaceClock(Pace pace, double fps, bool hasCost, FrameCost cost, MI_U64 startWallUs)
    : pace_(pace),
      fps_(fps),
      periodUs_(std::max<MI_U64>(source_frame_time(1, fps), 1)),
      hasCost_(pace == Pace::Camera || (pace == Pace::Realtime && hasCost)),
      meter_(cost),
      takenWallUs_(startWallUs) {}

MI_U64 PaceClock::frame_stamp(uint64_t index, MI_U64 wallUs) const {
    return pace_ == Pace::Realtime ? wallUs : source_frame_time(index, fps_);
}

bool PaceClock::may_arrive(MI_U64 stampUs, bool nothingQueued) const {
    return nothingQueued || stampUs <= busyUntilUs_;
}

MI_U64 PaceClock::frame_taken(MI_U64 stampUs, MI_U64 wallUs) {
    meter_.frame_taken();
    takenSincePause_ = true;
    takenWallUs_ = wallUs;
    switch (pace_) {
        case Pace::Lockstep:
        case Pace::Recorded:
            takenStampUs_ = stampUs;
            return stampUs;
        case Pace::Camera:
            // A frame that came while the consumer was busy waited for it.
            busyUntilUs_ = std::max(busyUntilUs_, stampUs);
            return busyUntilUs_;
        case Pace::Realtime:
            break;
    }
    return wallUs;
}

MI_U64 PaceClock::read(bool byConsumer, MI_U64 wallUs) {
    const MI_U64 charge = byConsumer && hasCost_ ? meter_.charge_read() : 0;
    switch (pace_) {
        case Pace::Lockstep:
        case Pace::Recorded:
            return takenStampUs_ + std::min<MI_U64>(wallUs - std::min(wallUs, takenWallUs_), periodUs_ - 1);
        case Pace::Camera:
            busyUntilUs_ += charge;
            return busyUntilUs_;
        case Pace::Realtime:
            break;
    }
    return wallUs;
}

bool PaceClock::pause(MI_U64 us) {
    switch (pace_) {
        case Pace::Camera:
            busyUntilUs_ += us;
            return true;
        case Pace::Lockstep:
        case Pace::Recorded: {
            const bool afterFrame = takenSincePause_;
            takenSincePause_ = false;
            return afterFrame;
        }
        case Pace::Realtime:
            break;
    }
    return false;
}

MI_U64 PaceClock::hold_until_us() const {
    return pace_ == Pace::Realtime && hasCost_ ? takenWallUs_ + meter_.charged() : 0;
}

}  // namespace host
