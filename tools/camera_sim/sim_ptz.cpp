// Real-time motion of the simulated camera.
#include "sim_ptz.h"

#include <algorithm>
#include <cmath>

double pan_tilt_rate(int speed) {
    return speed <= 0 ? 30.0 : 60.0 * speed;
}

double width_for_zoom_position(int32_t position) {
    if (position <= 0 || position >= kViewWidth) {
        return kViewWidth;
    }
    return std::max(kMinWidth, static_cast<double>(position));
}

void PtzAxis::advance(double seconds) {
    if (!moving() || seconds <= 0) {
        return;
    }
    const double step = rate * seconds;
    if (std::fabs(target - position) <= step) {
        position = target;
    } else {
        position += target > position ? step : -step;
    }
}

SimPtz::SimPtz() {
    zoom_.position = zoom_.target = kViewWidth;
    zoom_.rate = kZoomRate;
}

void SimPtz::advance(double seconds) {
    pan_.advance(seconds);
    tilt_.advance(seconds);
    zoom_.advance(seconds);
}

namespace {

void aim(PtzAxis &axis, double target, double limit, double rate) {
    axis.target = std::clamp(target, -limit, limit);
    axis.rate = rate;
}

// Drives toward one end of the axis: direction 1 (left, up) or 2 (right,
// down); anything else stops where the axis is. Left is negative for pan, up
// is positive for tilt.
void drive(PtzAxis &axis, int direction, double limit, double rate, bool firstIsNegative) {
    if (direction == 1) {
        aim(axis, firstIsNegative ? -limit : limit, limit, rate);
    } else if (direction == 2) {
        aim(axis, firstIsNegative ? limit : -limit, limit, rate);
    } else {
        axis.target = axis.position;
    }
}

}  // namespace

bool SimPtz::apply(const SimCommand &command) {
    switch (command.id) {
        case 0:
            zoom_.target = width_for_zoom_position(command.position);
            zoom_.rate = kZoomRate;
            return true;
        case 1:
            aim(pan_, command.pan, kMaxPan, pan_tilt_rate(command.panSpeed));
            aim(tilt_, command.tilt, kMaxTilt, pan_tilt_rate(command.tiltSpeed));
            return true;
        case 4:
            // Pan: 1 left (negative), 2 right. Tilt: 1 up (positive), 2 down.
            drive(pan_, command.panDirection, kMaxPan, pan_tilt_rate(command.panSpeed), true);
            drive(tilt_, command.tiltDirection, kMaxTilt, pan_tilt_rate(command.tiltSpeed), false);
            return true;
        case 5:
            return presets_.erase(command.value) > 0;
        case 6:
            presets_[command.value] = {pan_.position, tilt_.position, zoom_.position};
            return true;
        case 7: {
            auto found = presets_.find(command.value);
            if (found == presets_.end()) {
                return false;
            }
            aim(pan_, found->second.pan, kMaxPan, pan_tilt_rate(kRecallSpeed));
            aim(tilt_, found->second.tilt, kMaxTilt, pan_tilt_rate(kRecallSpeed));
            zoom_.target = found->second.width;
            zoom_.rate = kZoomRate;
            return true;
        }
        case 8:
        case 9:
            focusMode_ = command.id == 8 ? 2 : 3;
            return true;
        case 14:
            whiteBalance_ = command.value;
            return true;
        case 18: {
            // xy: x = 2 narrower (tele), 3 wider, anything else stops; y = speed 0..7.
            const int direction = command.value >> 4;
            const int speed = std::min(command.value & 0x0F, 7);
            if (direction == 2) {
                zoom_.target = kMinWidth;
            } else if (direction == 3) {
                zoom_.target = kViewWidth;
            } else {
                zoom_.target = zoom_.position;
            }
            zoom_.rate = kZoomRate * (speed + 1) / 8;
            return true;
        }
        default:
            return false;
    }
}

Bytes SimPtz::inquiry_reply(const SimCommand &command) const {
    switch (command.id) {
        case 2:
            return reply_zoom_position(static_cast<int32_t>(std::lround(zoom_.position)));
        case 3:
            return reply_pan_tilt_position(static_cast<int32_t>(std::lround(pan_.position)),
                                           static_cast<int32_t>(std::lround(tilt_.position)));
        case 10:
            return reply_version(1, 2, 3);
        case 11:
            return reply_one_byte(pan_.moving() || tilt_.moving() ? 1 : 0);
        case 12:
            return reply_0a_byte(static_cast<uint8_t>(whiteBalance_ & 0x7F));
        default:
            return reply_syntax_error();
    }
}
