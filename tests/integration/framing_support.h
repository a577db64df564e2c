// Reading what the daemon decided and what the camera received, and where a
// scenario's people really were, for the auto-framing tests.
#ifndef FACEDET_TEST_FRAMING_SUPPORT_H
#define FACEDET_TEST_FRAMING_SUPPORT_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "scenario_clip.h"

// A move as the camera is told it, in the 1920x1080 output space: pan and
// tilt of the framing centre from the view's centre (right and up positive),
// zoom the framing width.
struct Ptz {
    int pan = 0, tilt = 0, zoom = 0;
    bool operator==(const Ptz &o) const { return pan == o.pan && tilt == o.tilt && zoom == o.zoom; }
};
constexpr Ptz kFullView = {0, 0, 1920};
std::string to_string(const Ptz &p);

// One analysed frame of the daemon's console output.
struct FrameTrace {
    int frameNumber = 0;   // 1 for the first frame taken, so source index + 1 without drops
    int faceNum = -1;      // faces that reached target selection; -1 when it did not run
    int panTiltSends = 0;  // pan/tilt packets sent while the frame was handled
    bool tracedMove = false;
    Ptz move;  // the panPoint / tiltPoint / zoomPoint trace when tracedMove
};

// The frames of a daemon's output, in order; only frames that reached the
// analysis (auto framing running) carry faceNum.
std::vector<FrameTrace> frame_traces(const std::string &daemonOut);

// The traced moves only.
std::vector<FrameTrace> traced_moves(const std::vector<FrameTrace> &frames);

// Move packets camera_sim logged, in the order received: each zoom_absolute
// with the pan_tilt_absolute that follows it. *unpaired counts packets that
// broke that pattern.
std::vector<Ptz> received_moves(const std::string &simLog, int *unpaired);

// The framing the daemon's rules give for a face box of the 416x234 frame:
// the face grows into a head-and-shoulders person rectangle (one face size
// either side, 0.6 above, 1.25 below, cut to the view), which is widened to
// 16:9 and kept inside the view.
Ptz framing_for_face(const scenario::FaceTruth &face);

// Whether a move frames that face, allowing for the detector's box differing
// from the annotated one: the centre within 8% of the framing width (plus 30
// pixels) and the width within 12%. The detector's boxes on the scenario
// clips put the framing within about half of that.
bool frames_face(const Ptz &move, const scenario::FaceTruth &face, std::string *why);

// Polls `done` every 20 ms until it holds (true) or `limit` is up (false).
bool wait_until(const std::function<bool()> &done, std::chrono::milliseconds limit);

// Occurrences of lines containing `needle`.
size_t lines_containing(const std::string &text, const std::string &needle);

#endif
