#include "frame_picture.h"

#include <algorithm>
#include <cstdio>

#include <opencv2/imgproc.hpp>

namespace replay {

namespace {

constexpr double kViewWidth = 1920.0;
constexpr double kViewHeight = 1080.0;

cv::Rect scaled(const Box &b, double sx, double sy) {
    return cv::Rect(cvRound(b.x * sx), cvRound(b.y * sy), cvRound(b.w * sx), cvRound(b.h * sy));
}

cv::Mat left_panel(const cv::Mat &frame, const Overlay &o) {
    cv::Mat panel;
    cv::resize(frame, panel, cv::Size(kPanelWidth, kPanelHeight), 0, 0, cv::INTER_LINEAR);
    const double fx = static_cast<double>(kPanelWidth) / kFrameWidth;
    const double fy = static_cast<double>(kPanelHeight) / kFrameHeight;
    const double vx = kPanelWidth / kViewWidth;
    const double vy = kPanelHeight / kViewHeight;
    for (const Box &b : o.faces) {
        cv::rectangle(panel, scaled(b, fx, fy), kFaceColour, 2);
    }
    if (o.hasPerson) {
        cv::rectangle(panel, scaled(o.person, vx, vy), kPersonColour, 2);
    }
    if (o.hasFraming) {
        // The trace triple: centre (pan + 960, 540 - tilt), width zoom, 16:9.
        const double w = o.zoom;
        const double h = o.zoom * 9.0 / 16.0;
        const double cx = o.pan + kViewWidth / 2;
        const double cy = kViewHeight / 2 - o.tilt;
        cv::rectangle(panel,
                      cv::Rect(cvRound((cx - w / 2) * vx), cvRound((cy - h / 2) * vy), cvRound(w * vx),
                               cvRound(h * vy)),
                      kFramingColour, 2);
    }
    return panel;
}

cv::Mat camera_panel(const cv::Mat &frame, const SimState &s) {
    // The camera's crop, in the source frame's pixels.
    const double cx = (kViewWidth / 2 + s.pan) * kFrameWidth / kViewWidth;
    const double cy = (kViewHeight / 2 - s.tilt) * kFrameHeight / kViewHeight;
    const double w = std::max(1.0, s.width * kFrameWidth / kViewWidth);
    const double h = std::max(1.0, s.height * kFrameHeight / kViewHeight);
    const double sx = kPanelWidth / w;
    const double sy = kPanelHeight / h;
    cv::Mat m =
        (cv::Mat_<double>(2, 3) << sx, 0, kPanelWidth / 2.0 - sx * cx, 0, sy, kPanelHeight / 2.0 - sy * cy);
    cv::Mat panel;
    cv::warpAffine(frame, panel, m, cv::Size(kPanelWidth, kPanelHeight), cv::INTER_LINEAR,
                   cv::BORDER_CONSTANT, cv::Scalar(40, 40, 40));
    return panel;
}

}  // namespace

void update_overlay(Overlay &o, const TakenFrame &f) {
    o.frameNumber = f.frameNumber;
    o.mode = f.mode;
    if (f.framingRan) {
        o.faces = f.faces;
        o.hasPerson = f.hasPerson && !f.faces.empty();
        o.person = f.person;
    } else if (f.mode != Mode::Run) {
        o.faces.clear();
        o.hasPerson = false;
    }
    char text[96];
    if (f.moved) {
        o.hasFraming = true;
        o.pan = f.pan;
        o.tilt = f.tilt;
        o.zoom = f.zoom;
        snprintf(text, sizeof text, "#%d move pan %d tilt %d zoom %d", f.frameNumber, f.pan, f.tilt, f.zoom);
        o.decision = text;
    } else if (f.fullViewReset || f.stopFullView) {
        o.hasFraming = true;
        o.pan = 0;
        o.tilt = 0;
        o.zoom = 1920;
        snprintf(text, sizeof text, "#%d full view (%s)", f.frameNumber,
                 f.fullViewReset ? "no face" : "stopped");
        o.decision = text;
    }
}

void draw_text(cv::Mat &img, const std::string &s, cv::Point at, double scale) {
    // The dark outline needs no smoothing: drawn plainly it costs a third.
    cv::putText(img, s, at, cv::FONT_HERSHEY_SIMPLEX, scale, cv::Scalar(0, 0, 0), 3, cv::LINE_8);
    cv::putText(img, s, at, cv::FONT_HERSHEY_SIMPLEX, scale, cv::Scalar(255, 255, 255), 1, cv::LINE_AA);
}

std::string FrameCursor::advance(const FrameLogEntry &entry, const DaemonLog &daemon) {
    if (!entry.taken) {
        return "dropped";
    }
    if (taken_ >= daemon.frames.size()) {
        ++taken_;
        return "taken, not in the log";
    }
    update_overlay(overlay_, daemon.frames[taken_++]);
    return "taken";
}

cv::Mat draw_frame(const cv::Mat &source, const FrameLogEntry &entry, const std::string &fate,
                   const Overlay &overlay, const SimState &camera, const cv::Mat *cameraSource) {
    cv::Mat canvas(kPanelHeight, 2 * kPanelWidth, CV_8UC3);
    left_panel(source, overlay).copyTo(canvas(cv::Rect(0, 0, kPanelWidth, kPanelHeight)));
    camera_panel(cameraSource != nullptr ? *cameraSource : source, camera)
        .copyTo(canvas(cv::Rect(kPanelWidth, 0, kPanelWidth, kPanelHeight)));
    char line[160];
    snprintf(line, sizeof line, "source %llu (%s)  frame %d  faces %zu  %s",
             static_cast<unsigned long long>(entry.sourceIndex), fate.c_str(), overlay.frameNumber,
             overlay.faces.size(), mode_name(overlay.mode));
    draw_text(canvas, line, cv::Point(8, 18));
    draw_text(canvas, "last decision: " + overlay.decision, cv::Point(8, kPanelHeight - 10));
    snprintf(line, sizeof line, "camera pan %.0f tilt %.0f width %.0f%s", camera.pan, camera.tilt,
             camera.width, camera.moving ? " (moving)" : "");
    draw_text(canvas, line, cv::Point(kPanelWidth + 8, 18));
    return canvas;
}

}  // namespace replay
