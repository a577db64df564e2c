#include "replay_render.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <memory>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include "replay_report.h"

namespace replay {

namespace {

constexpr int kNv12Bytes = kFrameWidth * kFrameHeight * 3 / 2;
constexpr double kViewWidth = 1920.0;
constexpr double kViewHeight = 1080.0;

// The overlay palette (BGR).
const cv::Scalar kFaceColour(0, 0, 255);
const cv::Scalar kPersonColour(0, 255, 0);
const cv::Scalar kFramingColour(255, 0, 0);
const cv::Scalar kTextColour(255, 255, 255);

bool has_suffix(std::string path, const char *suffix) {
    std::transform(path.begin(), path.end(), path.begin(), [](unsigned char c) { return std::tolower(c); });
    const std::string s = suffix;
    return path.size() >= s.size() && path.compare(path.size() - s.size(), s.size(), s) == 0;
}

bool is_raw(const std::string &path) {
    return has_suffix(path, ".nv12") || has_suffix(path, ".yuv");
}

// Scaled to the port's size as the platform scales its sources.
cv::Mat to_port_size(const cv::Mat &bgr) {
    if (bgr.cols == kFrameWidth && bgr.rows == kFrameHeight) {
        return bgr.clone();
    }
    const bool shrinking = bgr.cols > kFrameWidth || bgr.rows > kFrameHeight;
    cv::Mat out;
    cv::resize(bgr, out, cv::Size(kFrameWidth, kFrameHeight), 0, 0,
               shrinking ? cv::INTER_AREA : cv::INTER_LINEAR);
    return out;
}

// Source frames by index, read forward; a looping run's indices go past the
// end and wrap to the start.
class SourceReader {
  public:
    explicit SourceReader(const std::string &path) : path_(path) {}

    cv::Mat frame(uint64_t index) {
        if (length_ > 0) {
            index %= static_cast<uint64_t>(length_);
        }
        if (!current_.empty() && index == position_ - 1) {
            return current_;
        }
        if (!open_ || index < position_) {
            reopen();
        }
        while (position_ <= index) {
            cv::Mat next = read_next();
            if (next.empty()) {
                if (position_ == 0) {
                    return cv::Mat();  // nothing readable at all
                }
                length_ = static_cast<long>(position_);
                index %= static_cast<uint64_t>(length_);
                reopen();
                continue;
            }
            current_ = next;
            ++position_;
        }
        return current_;
    }

  private:
    void reopen() {
        position_ = 0;
        current_ = cv::Mat();
        open_ = true;
        still_ = cv::Mat();
        raw_.reset();
        video_.release();
        if (is_raw(path_)) {
            raw_ = std::make_unique<std::ifstream>(path_, std::ios::binary);
        } else if (cv::haveImageReader(path_)) {
            still_ = cv::imread(path_, cv::IMREAD_COLOR);
        } else {
            video_.open(path_, cv::CAP_FFMPEG);
        }
    }

    cv::Mat read_next() {
        if (raw_) {
            cv::Mat nv12(kFrameHeight * 3 / 2, kFrameWidth, CV_8UC1);
            if (!raw_->read(reinterpret_cast<char *>(nv12.data), kNv12Bytes)) {
                return cv::Mat();
            }
            cv::Mat bgr;
            cv::cvtColor(nv12, bgr, cv::COLOR_YUV2BGR_NV12);
            return bgr;
        }
        if (!still_.empty()) {
            // A still image is a clip of one frame.
            cv::Mat out = position_ == 0 ? to_port_size(still_) : cv::Mat();
            return out;
        }
        cv::Mat raw;
        if (!video_.isOpened() || !video_.read(raw) || raw.empty()) {
            return cv::Mat();
        }
        return to_port_size(raw);
    }

    std::string path_;
    bool open_ = false;
    uint64_t position_ = 0;  // frames read since the last opening
    long length_ = -1;
    cv::Mat current_;
    cv::Mat still_;
    std::unique_ptr<std::ifstream> raw_;
    cv::VideoCapture video_;
};

cv::Rect scaled(const Box &b, double sx, double sy) {
    return cv::Rect(cvRound(b.x * sx), cvRound(b.y * sy), cvRound(b.w * sx), cvRound(b.h * sy));
}

void text(cv::Mat &img, const std::string &s, cv::Point at, double scale = 0.45) {
    cv::putText(img, s, at, cv::FONT_HERSHEY_SIMPLEX, scale, cv::Scalar(0, 0, 0), 3, cv::LINE_AA);
    cv::putText(img, s, at, cv::FONT_HERSHEY_SIMPLEX, scale, kTextColour, 1, cv::LINE_AA);
}

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

SourceInfo probe_source(const std::string &path) {
    SourceInfo info;
    std::ifstream probe(path, std::ios::binary);
    if (!probe) {
        info.error = "cannot read '" + path + "'";
        return info;
    }
    if (is_raw(path)) {
        probe.seekg(0, std::ios::end);
        const long long bytes = static_cast<long long>(probe.tellg());
        if (bytes < kNv12Bytes) {
            info.error = "'" + path + "' holds no whole NV12 frame of 416x234 (" +
                         std::to_string(kNv12Bytes) + " bytes each)";
            return info;
        }
        info.kind = "raw";
        info.frames = static_cast<long>(bytes / kNv12Bytes);
        info.fps = 30;
        info.ok = true;
        return info;
    }
    if (cv::haveImageReader(path)) {
        if (cv::imread(path, cv::IMREAD_COLOR).empty()) {
            info.error = "cannot decode the image '" + path + "'";
            return info;
        }
        info.kind = "image";
        info.frames = 1;
        info.fps = 30;
        info.ok = true;
        return info;
    }
    // FFmpeg only: the other back-ends' probing of a file they cannot read
    // leaks inside their plugins, which the sanitizer builds report as ours.
    cv::VideoCapture capture(path, cv::CAP_FFMPEG);
    cv::Mat first;
    if (!capture.isOpened() || !capture.read(first) || first.empty()) {
        info.error = "OpenCV (FFmpeg) cannot read a frame of '" + path + "'";
        return info;
    }
    info.kind = "video";
    const double fps = capture.get(cv::CAP_PROP_FPS);
    info.fps = fps > 0.5 && fps < 1000 ? fps : 30;
    const double count = capture.get(cv::CAP_PROP_FRAME_COUNT);
    info.frames = count > 0 ? static_cast<long>(count) : -1;
    info.ok = true;
    return info;
}

VideoResult render_video(const std::string &source, const std::vector<FrameLogEntry> &frameLog,
                         const DaemonLog &daemon, const SimLog &sim, double fps, const std::string &outPath) {
    VideoResult result;
    if (frameLog.empty()) {
        result.error = "no frame was delivered";
        return result;
    }
    // H.264 is what browsers play; MPEG-4 part 2 only where no H.264 encoder is built in.
    const cv::Size size(2 * kPanelWidth, kPanelHeight);
    cv::VideoWriter writer(outPath, cv::VideoWriter::fourcc('a', 'v', 'c', '1'), fps, size);
    if (!writer.isOpened()) {
        writer.open(outPath, cv::VideoWriter::fourcc('m', 'p', '4', 'v'), fps, size);
    }
    if (!writer.isOpened()) {
        result.error = "OpenCV cannot write '" + outPath + "' (avc1 or mp4v)";
        return result;
    }
    SourceReader reader(source);
    Overlay overlay;
    size_t taken = 0;
    cv::Mat lastFrame(kFrameHeight, kFrameWidth, CV_8UC3, cv::Scalar(0, 0, 0));
    cv::Mat canvas(kPanelHeight, 2 * kPanelWidth, CV_8UC3);
    for (const FrameLogEntry &e : frameLog) {
        cv::Mat frame = reader.frame(e.sourceIndex);
        if (frame.empty()) {
            frame = lastFrame;
        }
        lastFrame = frame;
        std::string fate = e.taken ? "taken" : "dropped";
        if (e.taken) {
            if (taken < daemon.frames.size()) {
                update_overlay(overlay, daemon.frames[taken]);
            } else {
                fate = "taken, not in the log";
            }
            ++taken;
        }
        const SimState state = sim_state_at(sim.states, static_cast<int64_t>(e.ptsUs));
        left_panel(frame, overlay).copyTo(canvas(cv::Rect(0, 0, kPanelWidth, kPanelHeight)));
        camera_panel(frame, state).copyTo(canvas(cv::Rect(kPanelWidth, 0, kPanelWidth, kPanelHeight)));

        char line[160];
        snprintf(line, sizeof line, "source %llu (%s)  frame %d  faces %zu  %s",
                 static_cast<unsigned long long>(e.sourceIndex), fate.c_str(), overlay.frameNumber,
                 overlay.faces.size(), mode_name(overlay.mode));
        text(canvas, line, cv::Point(8, 18));
        text(canvas, "last decision: " + overlay.decision, cv::Point(8, kPanelHeight - 10));
        snprintf(line, sizeof line, "camera pan %.0f tilt %.0f width %.0f%s", state.pan, state.tilt,
                 state.width, state.moving ? " (moving)" : "");
        text(canvas, line, cv::Point(kPanelWidth + 8, 18));
        writer.write(canvas);
        ++result.frames;
    }
    writer.release();
    result.ok = true;
    return result;
}

bool render_timeline(const std::vector<FrameLogEntry> &frameLog, const DaemonLog &daemon, const SimLog &sim,
                     const FramingScore *truth, const std::string &outPath, std::string *error) {
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
        text(img, names[i], cv::Point(6, a.top + 14));
        text(img, std::to_string(static_cast<int>(a.hi)), cv::Point(6, a.top + 32), 0.4);
        text(img, std::to_string(static_cast<int>(a.lo)), cv::Point(6, a.top + a.height - 4), 0.4);
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
        text(img, label, cv::Point(x - 14, height - 6), 0.35);
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

    text(img, "commanded", cv::Point(kLeft, 24));
    cv::line(img, cv::Point(kLeft + 90, 20), cv::Point(kLeft + 120, 20), commanded, 2);
    text(img, "actual", cv::Point(kLeft + 140, 24));
    cv::line(img, cv::Point(kLeft + 200, 20), cv::Point(kLeft + 230, 20), actual, 2);
    text(img, "move sent", cv::Point(kLeft + 250, 24));
    cv::line(img, cv::Point(kLeft + 335, 20), cv::Point(kLeft + 365, 20), kFramingColour, 2);
    text(img, "full view (no face)", cv::Point(kLeft + 385, 24));
    cv::line(img, cv::Point(kLeft + 540, 20), cv::Point(kLeft + 570, 20), reset, 2);
    text(img, "faces", cv::Point(kLeft + 590, 24));
    cv::line(img, cv::Point(kLeft + 640, 20), cv::Point(kLeft + 670, 20), kFaceColour, 2);

    if (truth) {
        text(img, "true face", cv::Point(kLeft + 690, 24));
        cv::circle(img, cv::Point(kLeft + 780, 20), 4, truthColour, cv::FILLED);
    }

    if (!cv::imwrite(outPath, img)) {
        *error = "OpenCV cannot write '" + outPath + "'";
        return false;
    }
    return true;
}

}  // namespace replay
