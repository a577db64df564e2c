// The side-by-side picture of one delivered frame: left the full view with
// the faces found (red), the person chosen (green) and the framing last sent
// (blue); right the simulated camera's picture, the full view cropped to its
// pan, tilt and zoom at the frame's time; captions over both. It is drawn
// from the parsed logs alone, so the replay's video and a view that follows a
// running replay draw the same picture.
#ifndef FACEDET_REPLAY_FRAME_PICTURE_H
#define FACEDET_REPLAY_FRAME_PICTURE_H

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "replay_logs.h"

namespace replay {

// The size of each half of the picture.
constexpr int kPanelWidth = 640;
constexpr int kPanelHeight = 360;

// The overlay palette (BGR), shared with the timeline.
const cv::Scalar kFaceColour(0, 0, 255);
const cv::Scalar kPersonColour(0, 255, 0);
const cv::Scalar kFramingColour(255, 0, 0);

// White text with a dark outline, readable over any picture.
void draw_text(cv::Mat &img, const std::string &s, cv::Point at, double scale = 0.45);

// What the left panel shows, carried from one taken frame to the next.
struct Overlay {
    int frameNumber = 0;
    Mode mode = Mode::Unknown;
    std::vector<Box> faces;
    bool hasPerson = false;
    Box person;
    bool hasFraming = false;
    int pan = 0, tilt = 0, zoom = 1920;
    std::string decision = "none yet";
};

// Carries what the daemon did with one taken frame into the overlay: its
// faces and choice, and its move or full view as the last decision.
void update_overlay(Overlay &overlay, const TakenFrame &frame);

// Walks the frame log's delivered frames in order, pairing each taken one
// with the daemon's next frame; a log that grows can be followed entry by entry.
class FrameCursor {
  public:
    // Moves past `entry` and returns its fate for the caption: "taken",
    // "dropped", or "taken, not in the log" when the daemon's log has no
    // frame for it (yet).
    std::string advance(const FrameLogEntry &entry, const DaemonLog &daemon);
    const Overlay &overlay() const { return overlay_; }

  private:
    Overlay overlay_;
    size_t taken_ = 0;
};

// The picture of `entry` (2 x 640 by 360, BGR): `source` is its source frame
// (416x234 BGR), `fate` and `overlay` what the cursor gave for it, `camera`
// the camera's state at its time (sim_state_at). The camera's half shows
// `cameraSource` instead when given: a live view analyses an older frame than
// the one the camera shows now.
cv::Mat draw_frame(const cv::Mat &source, const FrameLogEntry &entry, const std::string &fate,
                   const Overlay &overlay, const SimState &camera, const cv::Mat *cameraSource = nullptr);

}  // namespace replay

#endif
