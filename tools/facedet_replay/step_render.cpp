// The last step of a replay: the video, the timeline, the framing score,
// summary.json and report.html, each written under a temporary name and moved
// into place when whole, and the tool's last lines.
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "replay_render.h"
#include "replay_steps.h"

namespace fs = std::filesystem;

namespace replay {

namespace {

// Moves the finished file into place; the temporary name never passes for the
// real one, and is not left behind when the move fails.
bool publish(const std::string &tmp, const std::string &final, RunInfo &run) {
    std::error_code error;
    fs::rename(tmp, final, error);
    if (error) {
        run.notes.push_back("cannot rename " + tmp + ": " + error.message());
        fs::remove(tmp, error);
        return false;
    }
    return true;
}

void remove_quietly(const std::string &path) {
    std::error_code ignored;
    fs::remove(path, ignored);
}

bool write_text(const std::string &path, const std::string &text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    return !out.fail();
}

void add_recording(const Probe &p, const Logs &logs, Summary *summary) {
    const CameraRecording &rec = p.recorded;
    summary->recordingFile = rec.file;
    summary->recordingSummary = rec.summary;
    summary->recordedFrames = static_cast<int>(rec.frames.size());
    summary->recordingCut = rec.cut;
    summary->recordingDropped = rec.dropped;
    summary->cameraFrameMs = rec.frameTimeMs;
    summary->prediction = check_prediction(rec, logs.daemon, logs.sim);
}

void print_last_lines(const Summary &summary, const RunInfo &run, const std::string &out) {
    printf("facedet_replay: %s: %s\n", run.complete ? "complete" : "incomplete", run.reason.c_str());
    printf("  face detector: %s\n",
           summary.engine.empty() ? "none reported" : (summary.engine + " engine, " + summary.model).c_str());
    printf("  pace: %s", run.pace.c_str());
    if (summary.frameCostMs >= 0) {
        printf(", %.1f ms of the camera's time per analysed frame", summary.frameCostMs);
    }
    if (summary.analysedFps >= 0) {
        printf(", %.2f analysed frames per second", summary.analysedFps);
    }
    printf("\n");
    printf("  frames delivered %d, taken %d, dropped %d, analysed %d; faces mean %.2f max %d; moves %d\n",
           summary.delivered, summary.taken, summary.dropped, summary.analysed, summary.facesMean,
           summary.facesMax, summary.moves);
    if (run.sourceFramesFailed > 0) {
        printf("  %ld frames of the source could not be decoded and were skipped\n", run.sourceFramesFailed);
    }
    if (!summary.recordingFile.empty()) {
        const Spread &t = summary.cameraFrameMs;
        printf("  recording: %d frames (%s)", summary.recordedFrames, summary.recordingSummary.c_str());
        if (t.count > 0) {
            printf("; the camera's time per analysed frame: median %.1f ms, 95th percentile %.1f ms",
                   t.median, t.p95);
        }
        printf("\n");
    }
    if (summary.prediction.checked) {
        printf("  prediction: %s\n", prediction_line(summary.prediction).c_str());
        if (!summary.prediction.hint.empty()) {
            printf("  %s\n", summary.prediction.hint.c_str());
        }
    }
    if (summary.framingFrames > 0 && summary.framesWithFaces == 0) {
        printf("  no face was found in any analysed frame\n");
    }
    printf("  report: %s/report.html\n", out.c_str());
}

}  // namespace

bool write_whole(const std::string &path, const std::string &text, RunInfo &run) {
    const fs::path final(path);
    const std::string tmp = (final.parent_path() / ("." + final.filename().string() + ".tmp")).string();
    if (!write_text(tmp, text)) {
        remove_quietly(tmp);
        return false;
    }
    return publish(tmp, path, run);
}

int render(const Probe &p, const Logs &logs, RunInfo &run) {
    const std::string &out = p.out;
    const VideoResult video = render_video(run.source, p.delivered, logs.frames, logs.daemon, logs.sim,
                                           p.source.fps, out + "/.replay.tmp.mp4");
    if (!p.delivered.empty()) {
        remove_quietly(p.delivered);
    }
    const bool haveVideo = video.ok && publish(out + "/.replay.tmp.mp4", out + "/replay.mp4", run);
    if (!video.ok) {
        remove_quietly(out + "/.replay.tmp.mp4");
        run.notes.push_back("no video: " + video.error);
    }
    FramingScore score;
    if (!p.truthPath.empty()) {
        std::vector<ScoreFrame> scoreFrames;
        std::vector<ScoreMove> scoreMoves;
        score_inputs(logs.daemon, logs.frames, logs.sim, &scoreFrames, &scoreMoves);
        score = score_framing(p.truth, scoreFrames, scoreMoves, p.source.frames);
    }
    Summary summary = summarise(run, logs.daemon, logs.frames, logs.sim, logs.gamma);
    RecordedMoves recorded;
    if (p.isRecording) {
        add_recording(p, logs, &summary);
        summary.prediction.hint = rounding_hint(summary.prediction, summary.engine, p.arm);
        if (!summary.prediction.hint.empty()) {
            run.notes.push_back(summary.prediction.hint);
        }
        for (const CameraFrame &frame : p.recorded.frames) {
            if (!frame.packets.empty()) {
                recorded.timesUs.push_back(static_cast<int64_t>(frame.timeUs));
            }
        }
        const Prediction &prediction = summary.prediction;
        if (!prediction.identical && prediction.frame >= 1 &&
            prediction.frame <= static_cast<int>(p.recorded.frames.size())) {
            recorded.firstDifferenceUs = static_cast<int64_t>(p.recorded.frames[prediction.frame - 1].timeUs);
        }
    }
    std::string timelineError;
    const bool haveTimeline =
        render_timeline(logs.frames, logs.daemon, logs.sim, p.truthPath.empty() ? nullptr : &score,
                        out + "/.timeline.tmp.png", &timelineError, p.isRecording ? &recorded : nullptr) &&
        publish(out + "/.timeline.tmp.png", out + "/timeline.png", run);
    if (!haveTimeline) {
        remove_quietly(out + "/.timeline.tmp.png");
        run.notes.push_back("no timeline: " + timelineError);
    } else if (!(render_poster(video.still, out + "/timeline.png", out + "/.poster.tmp.png") &&
                 publish(out + "/.poster.tmp.png", out + "/poster.png", run))) {
        remove_quietly(out + "/.poster.tmp.png");
        run.notes.push_back("no poster");
    }
    if (run.complete && !haveVideo) {
        run.complete = false;
        run.reason = "the video could not be written";
    }
    // The run's complete and reason may have changed since.
    summary.run = run;
    summary.truthFile = p.truthPath;
    summary.truth = score;
    if (!write_text(out + "/.summary.json.tmp", summary_json(summary)) ||
        !write_text(out + "/.report.html.tmp", report_html(summary, haveVideo, haveTimeline))) {
        fprintf(stderr, "facedet_replay: cannot write the report into '%s'\n", out.c_str());
        remove_quietly(out + "/.summary.json.tmp");
        remove_quietly(out + "/.report.html.tmp");
        return 1;
    }
    publish(out + "/.summary.json.tmp", out + "/summary.json", run);
    publish(out + "/.report.html.tmp", out + "/report.html", run);
    print_last_lines(summary, run, out);
    if (p.expectIdentical && !summary.prediction.identical) {
        return kPredictionDiffers;
    }
    return run.complete ? 0 : 1;
}

}  // namespace replay
