/*
 * The simulated camera's pan, tilt and zoom, in the 1920x1080 space of the
 * full view: pan and tilt are the offset of the framing centre from the centre
 * of the view (pan positive to the right, tilt positive upward), the zoom is
 * the framing width (the height is width * 9 / 16). Every axis moves toward
 * its target at its own rate, in real time.
 */
#ifndef CAMERA_SIM_PTZ_H
#define CAMERA_SIM_PTZ_H

#include <cstdint>
#include <map>

#include "sim_protocol.h"

// Pixels per second of pan or tilt speed s: 60 * s, and 30 for speed 0 (the
// slowest rate that still moves).
double pan_tilt_rate(int speed);

constexpr double kViewWidth = 1920.0;
constexpr double kViewHeight = 1080.0;
constexpr double kMinWidth = 192.0;         // the longest zoom
constexpr double kZoomRate = 960.0;         // framing width per second
constexpr double kMaxPan = kViewWidth / 2;  // the centre stays inside the view
constexpr double kMaxTilt = kViewHeight / 2;
constexpr int kRecallSpeed = 24;  // preset recall: the fastest pan/tilt speed

// Width for a zoom position: 0 (the widest position, as sent by the move
// home) and anything above 1920 give the full width; small values the
// longest zoom.
double width_for_zoom_position(int32_t position);

struct PtzAxis {
    double position = 0;
    double target = 0;
    double rate = 0;  // pixels per second toward the target
    bool moving() const { return position != target; }
    void advance(double seconds);
};

class SimPtz {
  public:
    SimPtz();

    // Applies a parsed command; true when a target or setting changed.
    bool apply(const SimCommand &command);
    // Moves every axis by `seconds` of real time.
    void advance(double seconds);
    bool moving() const { return pan_.moving() || tilt_.moving() || zoom_.moving(); }

    const PtzAxis &pan() const { return pan_; }
    const PtzAxis &tilt() const { return tilt_; }
    const PtzAxis &zoom() const { return zoom_; }  // the framing width
    int focusMode() const { return focusMode_; }
    int whiteBalance() const { return whiteBalance_; }

    // The reply to an inquiry command.
    Bytes inquiry_reply(const SimCommand &command) const;

  private:
    struct Preset {
        double pan, tilt, width;
    };
    PtzAxis pan_, tilt_, zoom_;
    int focusMode_ = 2;  // 2 auto, 3 manual
    int whiteBalance_ = 0;
    std::map<int, Preset> presets_;
};

#endif
