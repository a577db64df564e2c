// The replay's timeline: pan, tilt and zoom as commanded and as reached, the moves and
// full-view resets sent and the faces per analysed frame, over the run's time.
#include <algorithm>
#include <cstdio>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "frame_picture.h"
#include "replay_render.h"
#include "replay_report.h"

namespace replay {

namespace {

// Maps one axis of values to pixel rows of a strip [top, top + height).
struct Axis {
    double lo, hi;
    int top, height;
    int y(double v) const {
        const double t = (v - lo) / (hi - lo);
        return top + height - 1 - cvRound(std::clamp(t, 0.0, 1.0) * (height - 1));
    }
};

}  // namespace

bool render_timeline(const std::vector<FrameLogEntry> &frameLog, const DaemonLog &daemon, const SimLog &sim,
                     const FramingScore *truth, const std::string &outPath, std::string *error,
                     const RecordedMoves *recorded) {
    if (frameLog.empty() && sim.states.empty()) {
        *error = "neither frames nor camera states to draw";
        return false;
    }
    const int64_t t0 =
        !frameLog.empty() ? static_cast<int64_t>(frameLog.front().ptsUs) : sim.states.front().tUs;
    int64_t t1 = t0 + 1000000;
    if (!frameLog.empty()) {
        t1 = std::max<int64_t>(t1, static_cast<int64_t>(frameLog.back().ptsUs));
    }
    for (const SimState &s : sim.states) {
        t1 = std::max(t1, s.tUs);
    }

    constexpr int kWidth = 1200, kLeft = 90, kRight = 20, kStrip = 170, kGap = 30, kTop = 40;
    constexpr int kStrips = 4;
    const int height = kTop + kStrips * (kStrip + kGap) + 20;
    cv::Mat img(height, kWidth, CV_8UC3, cv::Scalar(30, 30, 30));
    const int plotWidth = kWidth - kLeft - kRight;
    auto xOf = [&](int64_t t) {
        const double f = static_cast<double>(t - t0) / static_cast<double>(t1 - t0);
        return kLeft + cvRound(std::clamp(f, 0.0, 1.0) * (plotWidth - 1));
    };

    const std::vector<int64_t> times = taken_frame_times(daemon, frameLog);
    int maxFaces = 3;
    for (const TakenFrame &f : daemon.frames) {
        maxFaces = std::max(maxFaces, static_cast<int>(f.faces.size()));
    }
    const Axis axes[kStrips] = {{-960, 960, kTop, kStrip},
                                {-540, 540, kTop + (kStrip + kGap), kStrip},
                                {0, 1920, kTop + 2 * (kStrip + kGap), kStrip},
                                {0, static_cast<double>(maxFaces), kTop + 3 * (kStrip + kGap), kStrip}};
    const char *names[kStrips] = {"pan", "tilt", "zoom (width)", "faces"};
    const cv::Scalar grey(90, 90, 90), commanded(0, 200, 255), actual(255, 255, 0), reset(0, 128, 255);

    for (int i = 0; i < kStrips; ++i) {
        const Axis &a = axes[i];
        cv::rectangle(img, cv::Rect(kLeft, a.top, plotWidth, a.height), grey, 1);
        draw_text(img, names[i], cv::Point(6, a.top + 14));
        draw_text(img, std::to_string(static_cast<int>(a.hi)), cv::Point(6, a.top + 32), 0.4);
        draw_text(img, std::to_string(static_cast<int>(a.lo)), cv::Point(6, a.top + a.height - 4), 0.4);
    }
    // Seconds along the bottom.
    const double span = static_cast<double>(t1 - t0) / 1e6;
    const double step = span > 120 ? 30 : span > 30 ? 5 : span > 8 ? 1 : 0.5;
    for (double s = 0; s <= span; s += step) {
        const int x = xOf(t0 + static_cast<int64_t>(s * 1e6));
        cv::line(img, cv::Point(x, kTop), cv::Point(x, kTop + kStrips * (kStrip + kGap) - kGap),
                 cv::Scalar(50, 50, 50));
        char label[32];
        snprintf(label, sizeof label, "%.1f s", s);
        draw_text(img, label, cv::Point(x - 14, height - 6), 0.35);
    }

    // Moves (blue) and full-view resets (orange) across every strip.
    for (size_t i = 0; i < daemon.frames.size(); ++i) {
        const TakenFrame &f = daemon.frames[i];
        if (times[i] < 0 || !(f.moved || f.fullViewReset)) {
            continue;
        }
        const int x = xOf(times[i]);
        cv::line(img, cv::Point(x, kTop), cv::Point(x, kTop + kStrips * (kStrip + kGap) - kGap),
                 f.moved ? kFramingColour : reset, 1);
        if (f.moved) {
            cv::circle(img, cv::Point(x, axes[0].y(f.pan)), 4, kFramingColour, cv::FILLED);
            cv::circle(img, cv::Point(x, axes[1].y(f.tilt)), 4, kFramingColour, cv::FILLED);
            cv::circle(img, cv::Point(x, axes[2].y(f.zoom)), 4, kFramingColour, cv::FILLED);
        }
    }

    // The camera: commanded targets as steps, actual positions as lines.
    for (size_t i = 1; i < sim.states.size(); ++i) {
        const SimState &p = sim.states[i - 1], &s = sim.states[i];
        const int x0 = xOf(p.tUs), x1 = xOf(s.tUs);
        const double pv[3] = {p.pan, p.tilt, p.width}, sv[3] = {s.pan, s.tilt, s.width};
        const double pt[3] = {p.targetPan, p.targetTilt, p.targetWidth};
        const double st[3] = {s.targetPan, s.targetTilt, s.targetWidth};
        for (int a = 0; a < 3; ++a) {
            cv::line(img, cv::Point(x0, axes[a].y(pt[a])), cv::Point(x1, axes[a].y(pt[a])), commanded, 1);
            cv::line(img, cv::Point(x1, axes[a].y(pt[a])), cv::Point(x1, axes[a].y(st[a])), commanded, 1);
            cv::line(img, cv::Point(x0, axes[a].y(pv[a])), cv::Point(x1, axes[a].y(sv[a])), actual, 2);
        }
    }
    if (!sim.states.empty()) {
        const SimState &last = sim.states.back();
        const double lv[3] = {last.pan, last.tilt, last.width};
        for (int a = 0; a < 3; ++a) {
            cv::line(img, cv::Point(xOf(last.tUs), axes[a].y(lv[a])), cv::Point(xOf(t1), axes[a].y(lv[a])),
                     actual, 2);
        }
    }

    // The followed true face: its centre on the pan and tilt strips (magenta).
    const cv::Scalar truthColour(255, 0, 255);
    for (size_t i = 0; truth && i < truth->followedFaces.size(); ++i) {
        if (!truth->followedFaces[i]) {
            continue;
        }
        const Box &b = *truth->followedFaces[i];
        const double cx = (b.x + b.w / 2.0) * 1920.0 / kFrameWidth,
                     cy = (b.y + b.h / 2.0) * 1080.0 / kFrameHeight;
        const int x = xOf(truth->followedTimes[i]);
        cv::circle(img, cv::Point(x, axes[0].y(cx - 960)), 2, truthColour, cv::FILLED);
        cv::circle(img, cv::Point(x, axes[1].y(540 - cy)), 2, truthColour, cv::FILLED);
    }

    // Faces per analysed frame.
    for (size_t i = 0; i < daemon.frames.size(); ++i) {
        const TakenFrame &f = daemon.frames[i];
        if (times[i] < 0 || !f.framingRan) {
            continue;
        }
        const int x = xOf(times[i]);
        const int n = static_cast<int>(f.faces.size());
        cv::line(img, cv::Point(x, axes[3].y(0)), cv::Point(x, axes[3].y(n)), kFaceColour, 2);
    }

    draw_text(img, "commanded", cv::Point(kLeft, 24));
    cv::line(img, cv::Point(kLeft + 90, 20), cv::Point(kLeft + 120, 20), commanded, 2);
    draw_text(img, "actual", cv::Point(kLeft + 140, 24));
    cv::line(img, cv::Point(kLeft + 200, 20), cv::Point(kLeft + 230, 20), actual, 2);
    draw_text(img, "move sent", cv::Point(kLeft + 250, 24));
    cv::line(img, cv::Point(kLeft + 335, 20), cv::Point(kLeft + 365, 20), kFramingColour, 2);
    draw_text(img, "full view (no face)", cv::Point(kLeft + 385, 24));
    cv::line(img, cv::Point(kLeft + 540, 20), cv::Point(kLeft + 570, 20), reset, 2);
    draw_text(img, "faces", cv::Point(kLeft + 590, 24));
    cv::line(img, cv::Point(kLeft + 640, 20), cv::Point(kLeft + 670, 20), kFaceColour, 2);

    if (truth) {
        draw_text(img, "true face", cv::Point(kLeft + 690, 24));
        cv::circle(img, cv::Point(kLeft + 780, 20), 4, truthColour, cv::FILLED);
    }
    if (recorded) {
        // The camera's moves as ticks in the gap above each strip, beside the PC's lines.
        const cv::Scalar cameraMove(80, 220, 80), difference(255, 255, 255);
        for (const int64_t t : recorded->timesUs) {
            for (const Axis &a : axes) {
                cv::line(img, cv::Point(xOf(t), a.top - 12), cv::Point(xOf(t), a.top - 2), cameraMove, 2);
            }
        }
        if (recorded->firstDifferenceUs >= 0) {
            const int x = xOf(recorded->firstDifferenceUs);
            cv::line(img, cv::Point(x, kTop), cv::Point(x, kTop + kStrips * (kStrip + kGap) - kGap),
                     difference, 2);
        }
        draw_text(img, "camera's moves", cv::Point(kLeft + 800, 24));
        cv::line(img, cv::Point(kLeft + 930, 14), cv::Point(kLeft + 930, 26), cameraMove, 2);
        draw_text(img, "first difference", cv::Point(kLeft + 950, 24));
        cv::line(img, cv::Point(kLeft + 1075, 14), cv::Point(kLeft + 1075, 26), difference, 2);
    }

    if (!cv::imwrite(outPath, img)) {
        *error = "OpenCV cannot write '" + outPath + "'";
        return false;
    }
    return true;
}

}  // namespace replay
