#include "replay_report.h"

#include <algorithm>
#include <cstdio>

namespace replay {

namespace {

constexpr int kHistogramBuckets = 6;  // 0..4 faces, then "5 or more"

std::string fmt(const char *format, double value) {
    char text[64];
    snprintf(text, sizeof text, format, value);
    return text;
}

std::string spread_row(const char *name, const Spread &s) {
    if (s.count == 0) {
        return std::string("<tr><td>") + name + "</td><td colspan=\"3\">no lines</td></tr>\n";
    }
    return std::string("<tr><td>") + name + "</td><td>" + fmt("%.1f", s.median) + "</td><td>" +
           fmt("%.1f", s.p95) + "</td><td>" + fmt("%.0f", s.max) + "</td></tr>\n";
}

std::string row(const std::string &name, const std::string &value) {
    return "<tr><th>" + html_escape(name) + "</th><td>" + html_escape(value) + "</td></tr>\n";
}

}  // namespace

std::string html_escape(const std::string &text) {
    std::string out;
    for (char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

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
    s.gamma = gamma;
    return s;
}

std::string report_html(const Summary &s, bool haveVideo, bool haveTimeline) {
    const RunInfo &r = s.run;
    // One self-contained page: inline style only, opened from the file system.
    std::string h =
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<title>faceDet replay</title>\n<style>\n"
        "body{font-family:sans-serif;margin:1em;background:#fafafa;color:#222}\n"
        "table{border-collapse:collapse;margin:0.5em 0}\n"
        "td,th{border:1px solid #bbb;padding:2px 8px;text-align:left}\n"
        ".bad{color:#b00;font-weight:bold}.good{color:#070;font-weight:bold}\n"
        "</style>\n</head>\n<body>\n<h1>faceDet replay</h1>\n";
    h += "<p id=\"status\" class=\"" + std::string(r.complete ? "good" : "bad") + "\">" +
         (r.complete ? "complete" : "incomplete") + ": " + html_escape(r.reason) + "</p>\n";
    for (const std::string &note : r.notes) {
        h += "<p class=\"note\">" + html_escape(note) + "</p>\n";
    }
    if (s.framingFrames > 0 && s.framesWithFaces == 0) {
        h += "<p id=\"noface\" class=\"bad\">No face was found in any analysed frame.</p>\n";
    }
    h += "<h2>Replay</h2>\n";
    if (haveVideo) {
        h += "<p>Left: the full view with the faces (red), the chosen person (green) and the framing the "
             "daemon sent (blue). Right: the simulated camera's picture.</p>\n"
             "<video id=\"replay\" src=\"replay.mp4\" controls width=\"1280\"></video>\n"
             "<p><a href=\"replay.mp4\">replay.mp4</a></p>\n";
    } else {
        h += "<p class=\"bad\">No video: no frame was delivered.</p>\n";
    }
    h += "<h2>Timeline</h2>\n";
    if (haveTimeline) {
        h += "<img id=\"timeline\" src=\"timeline.png\" alt=\"pan, tilt, zoom and faces over time\">\n";
    } else {
        h += "<p class=\"bad\">No timeline: nothing to draw.</p>\n";
    }

    h += "<h2>Run</h2>\n<table id=\"run\">\n";
    h += row("source", r.source);
    h += row("pace", r.pace +
                         (s.frameCostMs < 0
                              ? std::string()
                              : fmt(", %.1f ms of the camera's time per analysed frame", s.frameCostMs)) +
                         (r.seconds > 0 ? fmt(", looped for %.1f s", r.seconds) : ", clip once"));
    h += row("face detector", s.engine.empty() ? std::string("not reported by the daemon")
                                               : s.engine + " engine, model " + s.model);
    h += row("daemon exit status", std::to_string(r.daemonExit));
    h += row("frames delivered", std::to_string(s.delivered));
    h += row("frames taken",
             std::to_string(s.taken) + " (" + std::to_string(s.takenInDaemonLog) + " in the daemon's log)");
    h += row("frames dropped", std::to_string(s.dropped));
    h += row("frames analysed", std::to_string(s.analysed) + " (" + std::to_string(s.framingFrames) +
                                    " with auto framing running)");
    h += row("analysed frames per second",
             s.analysedFps < 0 ? std::string("no frame analysed") : fmt("%.2f", s.analysedFps));
    h += row("duration", fmt("%.2f s", s.durationSeconds));
    h += row("faces per frame", fmt("mean %.2f", s.facesMean) + ", max " + std::to_string(s.facesMax));
    h += row("moves sent", std::to_string(s.moves) + fmt(" (%.1f per minute)", s.movesPerMinute));
    h += row("time to first move",
             s.firstMoveSeconds < 0 ? std::string("no move") : fmt("%.2f s", s.firstMoveSeconds));
    h += row("full-view resets (no face)", std::to_string(s.resets));
    h += row("full views while stopped", std::to_string(s.stopFullViews));
    h += row("camera packets",
             std::to_string(s.simPackets) + " (" + std::to_string(s.simBadPackets) + " malformed)");
    h += "</table>\n";

    h += "<h3>Faces per analysed frame</h3>\n<table id=\"faces\">\n<tr><th>faces</th>";
    for (size_t i = 0; i < s.faceHistogram.size(); ++i) {
        h += "<th>" + std::to_string(i) + (i + 1 == s.faceHistogram.size() ? "+" : "") + "</th>";
    }
    h += "</tr>\n<tr><th>frames</th>";
    for (int n : s.faceHistogram) {
        h += "<td>" + std::to_string(n) + "</td>";
    }
    h += "</tr>\n</table>\n";

    h += "<h3>Stage times (ms)</h3>\n<table id=\"stages\">\n"
         "<tr><th>stage</th><th>median</th><th>95th percentile</th><th>max</th></tr>\n";
    h += spread_row("get frame", s.getFrame);
    h += spread_row("autogamma", s.autogamma);
    h += spread_row("invoke", s.invoke);
    h += spread_row("strategies", s.strategies);
    h += spread_row("all", s.all);
    h += "</table>\n";

    if (!s.truthFile.empty()) {
        const FramingScore &t = s.truth;
        auto cell = [](const std::optional<double> &v, const char *format, double scale) {
            return v ? fmt(format, *v * scale) : std::string("no data");
        };
        h += "<h3>Framing against the true faces</h3>\n<table id=\"truth\">\n";
        h += row("truth file", s.truthFile);
        h += row("frames scored", std::to_string(t.framesScored) + " (" + std::to_string(t.framesWithPerson) +
                                      " with a person)");
        h += row("followed face wholly in view", cell(t.faceInView, "%.1f %%", 100));
        h += row("... and in the middle third", cell(t.faceInCentreThird, "%.1f %%", 100));
        h += row("face centre from view centre (share of view width)",
                 "median " + cell(t.centreOffsetMedian, "%.3f", 1) + ", 95th percentile " +
                     cell(t.centreOffsetP95, "%.3f", 1));
        h += row("face height (share of view height)", "median " + cell(t.faceHeightMedian, "%.3f", 1) +
                                                           ", 95th percentile " +
                                                           cell(t.faceHeightP95, "%.3f", 1));
        h += row("moves per minute", cell(t.movesPerMinute, "%.1f", 1));
        h += row("moves reversing the previous one", cell(t.reversalShare, "%.1f %%", 100));
        h += row("person entering to framed (median)", cell(t.entryToFrameS, "%.2f s", 1));
        h += row("last person leaving to full view (median)", cell(t.exitToFullViewS, "%.2f s", 1));
        h += row("followed person changes per minute", cell(t.targetChangesPerMinute, "%.1f", 1));
        h += "</table>\n";
    }

    h += "<h3>Gamma</h3>\n";
    if (!r.gammaAsked) {
        h += "<p>gamma_peer was not asked for (--gamma).</p>\n";
    } else if (s.gamma.empty()) {
        h += "<p>" + html_escape(r.gammaStatus) + "; no answers.</p>\n";
    } else {
        h +=
            "<table id=\"gamma\">\n<tr><th>answer</th><th>valid</th><th>mean</th><th>std dev</th><th>p50</th>"
            "<th>curve</th></tr>\n";
        for (const GammaAnswer &a : s.gamma) {
            h += "<tr><td>" + std::to_string(a.answer) + "</td><td>" + std::to_string(a.valid) + "</td><td>" +
                 std::to_string(a.mean) + "</td><td>" + std::to_string(a.stdDev) + "</td><td>" +
                 std::to_string(a.p50) + "</td><td>" + (a.accepted ? "accepted" : "rejected") +
                 "</td></tr>\n";
        }
        h += "</table>\n";
    }
    h +=
        "<p>Raw logs: <a href=\"logs/\">logs/</a>. Figures: <a href=\"summary.json\">summary.json</a>.</p>\n";
    h += "</body>\n</html>\n";
    return h;
}

}  // namespace replay
