#include "replay_report.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "page_template.h"
#include "report_page.h"

namespace replay {

namespace {

constexpr int kHistogramBuckets = 6;  // 0..4 faces, then "5 or more"

std::string fmt(const char *format, double value) {
    char text[64];
    snprintf(text, sizeof text, format, value);
    return text;
}

}  // namespace

std::vector<int64_t> taken_frame_times(const DaemonLog &daemon, const std::vector<FrameLogEntry> &frames) {
    std::vector<int64_t> times(daemon.frames.size(), -1);
    size_t k = 0;
    for (const FrameLogEntry &e : frames) {
        if (!e.taken) {
            continue;
        }
        if (k >= times.size()) {
            break;
        }
        times[k++] = static_cast<int64_t>(e.ptsUs);
    }
    return times;
}

Summary summarise(const RunInfo &run, const DaemonLog &daemon, const std::vector<FrameLogEntry> &frames,
                  const SimLog &sim, const std::vector<GammaAnswer> &gamma) {
    Summary s;
    s.run = run;
    s.engine = daemon.engine;
    s.model = daemon.model;
    s.delivered = static_cast<int>(frames.size());
    for (const FrameLogEntry &e : frames) {
        (e.taken ? s.taken : s.dropped) += 1;
    }
    s.takenInDaemonLog = static_cast<int>(daemon.frames.size());
    s.daemonLogCut = daemon.cutAtEnd;
    s.faceHistogram.assign(kHistogramBuckets, 0);

    const std::vector<int64_t> times = taken_frame_times(daemon, frames);
    const int64_t firstPts = frames.empty() ? -1 : static_cast<int64_t>(frames.front().ptsUs);
    if (frames.size() >= 2) {
        s.durationSeconds = static_cast<double>(frames.back().ptsUs - frames.front().ptsUs) / 1e6;
    }

    s.frameCostMs = daemon.frameCostMs;
    std::vector<double> getFrame, autogamma, invoke, strategies, all;
    long faceSum = 0;
    int timedFramingFrames = 0;
    double framingMs = 0;  // their "all" times as printed
    for (size_t i = 0; i < daemon.frames.size(); ++i) {
        const TakenFrame &f = daemon.frames[i];
        if (f.analysed) {
            ++s.analysed;
        }
        if (f.framingRan) {
            ++s.framingFrames;
            if (f.allMs >= 0) {
                framingMs += f.allMs;
                ++timedFramingFrames;
            }
            const int n = static_cast<int>(f.faces.size());
            faceSum += n;
            s.facesMax = std::max(s.facesMax, n);
            s.faceHistogram[std::min(n, kHistogramBuckets - 1)] += 1;
            if (n > 0) {
                ++s.framesWithFaces;
            }
        }
        if (f.moved) {
            ++s.moves;
            if (s.firstMoveSeconds < 0 && times[i] >= 0 && firstPts >= 0) {
                s.firstMoveSeconds = static_cast<double>(times[i] - firstPts) / 1e6;
            }
        }
        if (f.fullViewReset) {
            ++s.resets;
        }
        if (f.stopFullView) {
            ++s.stopFullViews;
        }
        s.runFrames += f.mode == Mode::Run ? 1 : 0;
        s.stopFrames += f.mode == Mode::Stop ? 1 : 0;
        s.modeSwitches += i > 0 && f.mode != daemon.frames[i - 1].mode ? 1 : 0;
        getFrame.push_back(f.getFrameMs);
        autogamma.push_back(f.autogammaMs);
        invoke.push_back(f.invokeMs);
        strategies.push_back(f.strategiesMs);
        all.push_back(f.allMs);
    }
    if (s.framingFrames > 0) {
        s.facesMean = static_cast<double>(faceSum) / s.framingFrames;
    }
    if (s.durationSeconds > 0) {
        s.movesPerMinute = s.moves * 60.0 / s.durationSeconds;
    }
    // The rate while the detector runs, by the daemon's own clock: camera
    // time at the camera's pace, the clip's in lockstep, the wall clock in realtime.
    if (timedFramingFrames > 0) {
        s.analysedFps = analysed_fps_of(static_cast<size_t>(timedFramingFrames), framingMs);
    }
    s.getFrame = spread_of(getFrame);
    s.autogamma = spread_of(autogamma);
    s.invoke = spread_of(invoke);
    s.strategies = spread_of(strategies);
    s.all = spread_of(all);
    s.simStates = static_cast<int>(sim.states.size());
    for (const SimRx &rx : sim.rx) {
        ++s.simPackets;
        if (rx.error) {
            ++s.simBadPackets;
        }
    }
    s.offPasses = daemon.offPasses;
    s.gamma = gamma;
    return s;
}

Summary summarise_camera_log(const RunInfo &run, const DaemonLog &daemon,
                             const std::vector<FrameLogEntry> &frames) {
    Summary s = summarise(run, daemon, frames, SimLog(), {});
    s.cameraLog = true;
    std::vector<double> analysedMs;
    for (const TakenFrame &f : daemon.frames) {
        if (f.framingRan && f.allMs >= 0) {
            analysedMs.push_back(f.allMs);
        }
    }
    s.cameraFrameMs = spread_of(analysedMs);
    return s;
}

std::string report_html(const Summary &s, bool haveVideo, bool haveTimeline) {
    const RunInfo &r = s.run;
    nlohmann::ordered_json page;
    page["statusClass"] = r.complete ? "good" : "bad";
    page["status"] = r.complete ? "complete" : "incomplete";
    page["reason"] = r.reason;
    page["notes"] = r.notes;
    page["noFace"] = s.framingFrames > 0 && s.framesWithFaces == 0;
    page["video"] = haveVideo;
    page["timeline"] = haveTimeline;

    nlohmann::ordered_json run = nlohmann::ordered_json::array();
    auto add = [](nlohmann::ordered_json &rows, const std::string &name, const std::string &value) {
        rows.push_back({{"name", name}, {"value", value}});
    };
    add(run, "source", r.source);
    add(run, "pace",
        r.pace +
            (s.frameCostMs < 0 ? std::string()
                               : fmt(", %.1f ms of the camera's time per analysed frame", s.frameCostMs)) +
            (r.seconds > 0 ? fmt(", looped for %.1f s", r.seconds) : ", clip once"));
    add(run, "face detector",
        s.engine.empty() ? std::string("not reported by the daemon")
                         : s.engine + " engine, model " + s.model);
    add(run, "daemon exit status", std::to_string(r.daemonExit));
    add(run, "frames delivered", std::to_string(s.delivered));
    add(run, "frames taken",
        std::to_string(s.taken) + " (" + std::to_string(s.takenInDaemonLog) + " in the daemon's log)");
    add(run, "frames dropped", std::to_string(s.dropped));
    add(run, "frames analysed",
        std::to_string(s.analysed) + " (" + std::to_string(s.framingFrames) + " with auto framing running)");
    add(run, "analysed frames per second",
        s.analysedFps < 0 ? std::string("no frame analysed") : fmt("%.2f", s.analysedFps));
    add(run, "duration", fmt("%.2f s", s.durationSeconds));
    add(run, "faces per frame", fmt("mean %.2f", s.facesMean) + ", max " + std::to_string(s.facesMax));
    add(run, "moves sent", std::to_string(s.moves) + fmt(" (%.1f per minute)", s.movesPerMinute));
    add(run, "time to first move",
        s.firstMoveSeconds < 0 ? std::string("no move") : fmt("%.2f s", s.firstMoveSeconds));
    add(run, "full-view resets (no face)", std::to_string(s.resets));
    add(run, "full views while stopped", std::to_string(s.stopFullViews));
    add(run, "auto framing",
        std::to_string(s.runFrames) + " frames running, " + std::to_string(s.stopFrames) + " stopped, " +
            std::to_string(s.offPasses) + " passes off; " + std::to_string(s.modeSwitches) + " switches");
    if (s.cameraLog) {
        const Spread &t = s.cameraFrameMs;
        add(run, "the camera's time per analysed frame",
            t.count == 0 ? std::string("no analysed frame")
                         : fmt("median %.1f ms", t.median) + fmt(", 95th percentile %.1f ms", t.p95));
    }
    add(run, "camera packets",
        std::to_string(s.simPackets) + " (" + std::to_string(s.simBadPackets) + " malformed)");
    page["run"] = run;

    for (size_t i = 0; i < s.faceHistogram.size(); ++i) {
        page["faceCounts"].push_back(
            {{"faces", std::to_string(i) + (i + 1 == s.faceHistogram.size() ? "+" : "")},
             {"frames", std::to_string(s.faceHistogram[i])}});
    }
    const std::pair<const char *, const Spread *> stages[] = {{"get frame", &s.getFrame},
                                                              {"autogamma", &s.autogamma},
                                                              {"invoke", &s.invoke},
                                                              {"strategies", &s.strategies},
                                                              {"all", &s.all}};
    for (const auto &[name, spread] : stages) {
        nlohmann::ordered_json stage = {{"name", name}, {"lines", false}};
        if (spread->count > 0) {
            stage["lines"] = {{"median", fmt("%.1f", spread->median)},
                              {"p95", fmt("%.1f", spread->p95)},
                              {"max", fmt("%.0f", spread->max)}};
        }
        page["stages"].push_back(stage);
    }

    if (!s.truthFile.empty()) {
        const FramingScore &t = s.truth;
        auto cell = [](const std::optional<double> &v, const char *format, double scale) {
            return v ? fmt(format, *v * scale) : std::string("no data");
        };
        nlohmann::ordered_json rows = nlohmann::ordered_json::array();
        add(rows, "truth file", s.truthFile);
        add(rows, "frames scored",
            std::to_string(t.framesScored) + " (" + std::to_string(t.framesWithPerson) + " with a person)");
        add(rows, "followed face wholly in view", cell(t.faceInView, "%.1f %%", 100));
        add(rows, "... and in the middle third", cell(t.faceInCentreThird, "%.1f %%", 100));
        add(rows, "face centre from view centre (share of view width)",
            "median " + cell(t.centreOffsetMedian, "%.3f", 1) + ", 95th percentile " +
                cell(t.centreOffsetP95, "%.3f", 1));
        add(rows, "face height (share of view height)",
            "median " + cell(t.faceHeightMedian, "%.3f", 1) + ", 95th percentile " +
                cell(t.faceHeightP95, "%.3f", 1));
        add(rows, "moves per minute", cell(t.movesPerMinute, "%.1f", 1));
        add(rows, "moves reversing the previous one", cell(t.reversalShare, "%.1f %%", 100));
        add(rows, "person entering to framed (median)", cell(t.entryToFrameS, "%.2f s", 1));
        add(rows, "last person leaving to full view (median)", cell(t.exitToFullViewS, "%.2f s", 1));
        add(rows, "followed person changes per minute", cell(t.targetChangesPerMinute, "%.1f", 1));
        page["truth"] = {{"rows", rows}};
    }

    if (s.prediction.checked) {
        page["prediction"] = {{"predictionClass", s.prediction.identical ? "good" : "bad"},
                              {"line", prediction_line(s.prediction)}};
    }
    if (!s.recordingFile.empty()) {
        nlohmann::ordered_json rows = nlohmann::ordered_json::array();
        add(rows, "file", s.recordingFile);
        add(rows, "frames the camera took", std::to_string(s.recordedFrames));
        add(rows, "reading", s.recordingSummary);
        add(rows, "records cut by damage", std::to_string(s.recordingCut));
        add(rows, "events the recorder dropped", std::to_string(s.recordingDropped));
        const Spread &t = s.cameraFrameMs;
        add(rows, "the camera's time per analysed frame",
            t.count == 0 ? std::string("no analysed frame followed by another")
                         : fmt("median %.1f ms", t.median) + fmt(", 95th percentile %.1f ms", t.p95) + " (" +
                               std::to_string(t.count) + " frames)");
        page["recording"] = {{"rows", rows}};
    }

    page["gammaAsked"] = r.gammaAsked;
    page["gammaStatus"] = r.gammaStatus;
    page["gammaTable"] = !s.gamma.empty();
    page["gammaAnswers"] = nlohmann::ordered_json::array();
    for (const GammaAnswer &a : s.gamma) {
        page["gammaAnswers"].push_back({{"answer", a.answer},
                                        {"valid", a.valid},
                                        {"mean", a.mean},
                                        {"stdDev", a.stdDev},
                                        {"p50", a.p50},
                                        {"curve", a.accepted ? "accepted" : "rejected"}});
    }
    std::string error;
    const std::string html = render_page(kReportPage, page, &error);
    if (html.empty()) {
        // The template is built into the program: a broken one is caught by the tests.
        throw std::runtime_error("report template: " + error);
    }
    return html;
}

}  // namespace replay
