// facedet_replay end to end: the real daemon and camera_sim play a clip, and
// the report, the figures and the video are read back; flight recordings it
// must refuse or read in part, and a camera's console log alone.
#include <sys/stat.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/videoio.hpp>

#include "bad_videos.h"
#include "process_helpers.h"
#include "recording_builder.h"
#include "run_logs.h"
#include "temp_dir.h"

using namespace std::chrono_literals;
using recording::Kind;

namespace {

const auto npos = std::string::npos;

struct Replay {
    int status = -1;
    std::string out, err;
};

Replay replay(const TempDir &dir, const std::vector<std::string> &args) {
    ChildProcess::Options options;
    options.args = args;
    options.workDir = dir.path();
    options.unsetEnv = {"FACEDET_SOURCE",    "FACEDET_PACE",        "FACEDET_FRAME_COST_MS",
                        "FACEDET_LOOP",      "FACEDET_EXIT_AT_END", "FACEDET_FAULTS",
                        "FACEDET_FRAME_LOG", "FACEDET_RUNTIME_DIR", "FACEDET_SHM_KEY"};
    ChildProcess child(FACEDET_REPLAY_BIN, options);
    // Sanitizer builds are several times slower; the tool has its own time-outs.
    const int status = child.wait_exit(300s);
    return {status, child.out(), child.err()};
}

// A plain grey raw clip: frames without any face.
std::string grey_clip(const TempDir &dir, int frames) {
    const std::string path = dir.file("grey.nv12");
    write_file(path, std::string(static_cast<size_t>(416 * 234 * 3 / 2) * frames, '\x80'));
    return path;
}

// A number of summary.json; NaN for null or a missing key.
double figure(const std::string &json, const std::string &key) {
    const size_t at = json.find("\"" + key + "\": ");
    return at == npos ? NAN : std::strtod(json.c_str() + at + key.size() + 4, nullptr);
}

nlohmann::json summary(const TempDir &dir, const std::string &out) {
    return nlohmann::json::parse(read_file(dir.file(out + "/summary.json")));
}

// Grey frames 200 ms apart, auto framing switched on before the first.
RecordingBuilder grey_recording(int frames) {
    RecordingBuilder b;
    b.datagram(Kind::Control, 0, {1, 1});
    for (int i = 0; i < frames; ++i) {
        b.frame(1000 + 200000ull * i, {});
    }
    return b;
}

}  // namespace

// A lockstep replay of a clip with one large face: its figures, video and page.
TEST(ReplayTalkingHead, SummaryCountsEveryFrameAndTheMoveAndTheVideoEachFrame) {
    TempDir dir;
    const auto out = [&](const std::string &name) { return dir.file("out/" + name); };
    const Replay r =
        replay(dir, {std::string(FACEDET_SHARED_DIR) + "/data/videos/talking_head_single_person.mp4", "--out",
                     dir.file("out"), "--lockstep"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    const std::string json = read_file(out("summary.json"));
    // Lockstep: nothing dropped; 9 warm-up frames before the analysis starts. The
    // daemon frames the one person once and holds still after.
    for (const char *figure : {"\"complete\": true", "\"pace\": \"lockstep\"", "\"frame_cost_ms\": null",
                               "\"delivered\": 62, \"taken\": 62, \"dropped\": 0", "\"analysed\": 53",
                               "\"no_face_found\": false", "\"moves\": 1,", "\"packets\": 2"}) {
        EXPECT_NE(json.find(figure), npos) << figure << "\n" << json;
    }
    EXPECT_GT(figure(json, "analysed_fps"), 0) << json;
    EXPECT_TRUE(file_exists(out("poster.png")));
    EXPECT_EQ(json.find("\"first_move_seconds\": null"), npos) << json;
    EXPECT_EQ(count_of(read_file(out("logs/daemon.out")), "zoomPoint = "), 1u);
    const std::string page = read_file(out("report.html"));
    for (const char *element :
         {"<video id=\"replay\" src=\"replay.mp4\"", "<img id=\"timeline\" src=\"timeline.png\"",
          "<table id=\"run\">", "<table id=\"stages\">", "frames analysed</th><td>53"}) {
        EXPECT_NE(page.find(element), npos) << element;
    }
    // The video has one frame per delivered frame, side by side.
    cv::VideoCapture video(out("replay.mp4"));
    ASSERT_TRUE(video.isOpened());
    EXPECT_EQ(video.get(cv::CAP_PROP_FRAME_WIDTH), 1280);
    EXPECT_EQ(video.get(cv::CAP_PROP_FRAME_HEIGHT), 360);
    EXPECT_NEAR(video.get(cv::CAP_PROP_FPS), 12.0, 0.01);
    int frames = 0;
    for (cv::Mat frame; video.read(frame);) {
        ++frames;
    }
    EXPECT_EQ(frames, 62);
    EXPECT_GT(read_file(out("timeline.png")).size(), 5000u);
    // No temporary file is left beside the results.
    EXPECT_FALSE(file_exists(out(".replay.tmp.mp4")));
    EXPECT_FALSE(file_exists(out(".report.html.tmp")));
}

TEST(ReplayBadInput, UnreadableSourceStartsNothing) {
    TempDir dir;
    write_file(dir.file("broken.mp4"), "not a video at all");
    for (const auto &[source, error] :
         {std::pair<std::string, std::string>{"broken.mp4", "nothing was started"},
          {"none.nv12", "cannot read"}}) {
        const Replay r = replay(dir, {dir.file(source), "--out", dir.file("out")});
        EXPECT_EQ(r.status, 2);
        EXPECT_NE(r.err.find(error), npos) << r.err;
        EXPECT_FALSE(file_exists(dir.file("out/summary.json")));
    }
    const Replay costInLockstep =
        replay(dir, {dir.file("none.nv12"), "--out", dir.file("out"), "--lockstep", "--frame-cost", "100"});
    EXPECT_EQ(costInLockstep.status, 2);
    EXPECT_NE(costInLockstep.err.find("not lockstep"), npos) << costInLockstep.err;
}

TEST(ReplayBadInput, OutputFolderWithFilesNeedsForceAndAMissingGammaPeerIsNamed) {
    TempDir dir;
    const std::string clip = grey_clip(dir, 20);
    mkdir(dir.file("out").c_str(), 0755);
    write_file(dir.file("out/summary.json"), "{\"complete\": true, \"stale\": true}\n");
    const Replay refused = replay(dir, {clip, "--out", dir.file("out"), "--lockstep"});
    EXPECT_EQ(refused.status, 2);
    EXPECT_NE(refused.err.find("--force"), npos) << refused.err;
    EXPECT_NE(read_file(dir.file("out/summary.json")).find("stale"), npos);

    // Forced: the stale figures are replaced; the grey clip has no face. A
    // truth file that cannot be scored is named and the run goes on unscored.
    write_file(dir.file("truth.csv"), "frame,person,x,y,w,h,score\n");
    // At the default pace, the camera's: 189 ms per analysed frame lets the
    // daemon take frames 0-9, then 13, 18 and the last of the 20.
    const Replay r =
        replay(dir, {clip, "--out", dir.file("out"), "--force", "--gamma", "--truth", dir.file("truth.csv")});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_NE(r.err.find("truth.csv: line 1: unknown column 'score'"), npos) << r.err;
    const std::string json = read_file(dir.file("out/summary.json"));
    EXPECT_EQ(json.find("stale"), npos);
    for (const char *figure : {"\"pace\": \"camera\"", "\"frame_cost_ms\": 189.0", "\"no_face_found\": true",
                               "\"taken\": 13, \"dropped\": 7", "\"analysed\": 4", "\"moves\": 0,"}) {
        EXPECT_NE(json.find(figure), npos) << figure << "\n" << json;
    }
    EXPECT_EQ(json.find("\"truth\": {"), npos) << json;
    EXPECT_NE(read_file(dir.file("out/report.html")).find("No face was found"), npos);
    EXPECT_NE(r.out.find("no face was found"), npos) << r.out;
    if (r.err.find("gamma_peer not built") != npos) {
        EXPECT_NE(json.find("\"status\": \"gamma_peer not built\""), npos) << json;
    } else {
        EXPECT_NE(json.find("\"status\": \"ran\""), npos) << json;
        EXPECT_TRUE(file_exists(dir.file("out/logs/gamma_peer.out")));
    }
}

// The frames that decode are played; the terminal, the summary and the page
// say how many did not.
TEST(ReplayBadInput, VideoWithFramesThatDoNotDecodeIsPlayedAndTheirCountSaid) {
    TempDir dir;
    ASSERT_TRUE(make_video_with_three_bad_frames(dir.file("bad.avi")));
    const Replay r = replay(dir, {dir.file("bad.avi"), "--out", dir.file("out"), "--lockstep"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    const std::string said = "3 frames of the source could not be decoded and were skipped";
    EXPECT_NE(r.out.find(said), npos) << r.out;
    const std::string json = read_file(dir.file("out/summary.json"));
    EXPECT_EQ(figure(json, "source_frames_failed"), 3) << json;
    EXPECT_NE(json.find("\"delivered\": 17,"), npos) << json;
    EXPECT_NE(read_file(dir.file("out/report.html")).find(said), npos);
    // The video was drawn from the platform's copy of the frames, which goes with the run.
    EXPECT_FALSE(file_exists(dir.file("out/.delivered.tmp.nv12")));
}

TEST(ReplayBadInput, DaemonPastItsTimeLimitIsReportedIncomplete) {
    TempDir dir;
    // Ten seconds of frames at the real pace, stopped after four.
    const Replay r = replay(dir, {grey_clip(dir, 300), "--out", dir.file("out"), "--timeout", "4", "--pace",
                                  "realtime", "--frame-cost", "50"});
    EXPECT_EQ(r.status, 1) << r.out << r.err;
    const std::string json = read_file(dir.file("out/summary.json"));
    for (const char *figure : {"\"pace\": \"realtime\"", "\"frame_cost_ms\": 50.0"}) {
        EXPECT_NE(json.find(figure), npos) << figure << "\n" << json;
    }
    EXPECT_NE(json.find("\"complete\": false"), npos) << json;
    EXPECT_NE(json.find("after 4 s (time-out)"), npos) << json;
    EXPECT_NE(read_file(dir.file("out/report.html")).find("incomplete: daemon"), npos);
    EXPECT_NE(r.out.find("incomplete"), npos) << r.out;
}

#ifdef SCENARIO_CLIP_BIN
// A person walks in: the lockstep run is scored on the clip's own timeline.
TEST(ReplayTruth, ScenarioIsScoredOnTheVideosTimeline) {
    TempDir dir;
    ChildProcess::Options options;
    options.args = {"--scenario",           "enter",   "--frames",           "60", "--out",
                    dir.file("enter.nv12"), "--truth", dir.file("truth.csv")};
    options.workDir = dir.path();
    ASSERT_EQ(ChildProcess(SCENARIO_CLIP_BIN, options).wait_exit(60s), 0);
    const Replay r = replay(dir, {dir.file("enter.nv12"), "--out", dir.file("out"), "--lockstep", "--truth",
                                  dir.file("truth.csv")});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    const std::string json = read_file(dir.file("out/summary.json"));
    EXPECT_NE(json.find("\"truth\": {\"file\": \"" + dir.file("truth.csv")), npos) << json;
    EXPECT_EQ(figure(json, "frames_scored"), 60) << json;
    EXPECT_GT(figure(json, "frames_with_person"), 10) << json;
    EXPECT_GE(figure(json, "face_in_view"), 0.8) << json;
    EXPECT_TRUE(figure(json, "face_height_median") > 0.05 && figure(json, "face_height_p95") < 1) << json;
    EXPECT_TRUE(figure(json, "entry_to_frame_s") > 0 && figure(json, "entry_to_frame_s") < 1.5) << json;
    EXPECT_GT(figure(json, "moves_per_minute"), 0) << json;
    EXPECT_NE(read_file(dir.file("out/report.html")).find("id=\"truth\""), npos);
    // The camera moved on the source's time: frames 1/30 s apart from 0, and
    // no camera state later than the last frame.
    const std::string frames = read_file(dir.file("out/logs/frames.log"));
    EXPECT_EQ(frames.rfind("0 0 taken", 0), 0u) << frames.substr(0, 80);
    EXPECT_NE(frames.find("\n59 1966667 taken"), npos);
    const std::string sim = read_file(dir.file("out/logs/camera_sim.jsonl"));
    for (size_t at = sim.find("{\"t_us\":"); at != npos; at = sim.find("{\"t_us\":", at + 1)) {
        ASSERT_LE(std::strtoll(sim.c_str() + at + 8, nullptr, 10), 1966667) << sim.substr(at, 80);
    }
}
#endif

#ifdef SCENARIO_CLIP_BIN
// What making replays faster must not change: on a raw clip, at the camera's
// pace and in lockstep, the frames taken and dropped, the packets the camera
// received and the figures of summary.json but its times, as stored before.
// FACEDET_UPDATE_EXPECTED=1 writes the expectation instead (on purpose only).
TEST(ReplayExpectation, RawClipTakesSendsAndCountsWhatItDidBefore) {
    TempDir dir;
    ChildProcess::Options options;
    options.args = {"--scenario", "across_and_back", "--out", dir.file("clip.nv12")};
    options.workDir = dir.path();
    ASSERT_EQ(ChildProcess(SCENARIO_CLIP_BIN, options).wait_exit(60s), 0);
    const bool update = getenv("FACEDET_UPDATE_EXPECTED") != nullptr;
    for (const std::string pace : {"camera", "lockstep"}) {
        const std::string out = dir.file("out-" + pace);
        const Replay r = replay(dir, {dir.file("clip.nv12"), "--out", out, "--pace", pace});
        ASSERT_EQ(r.status, 0) << r.out << r.err;
        std::string packets;
        for (const logs::SimRx &rx : logs::parse_sim_log(read_file(out + "/logs/camera_sim.jsonl")).rx) {
            for (uint8_t b : rx.bytes) {
                char hex[4];
                snprintf(hex, sizeof hex, "%02x ", b);
                packets += hex;
            }
            packets += "\n";
        }
        nlohmann::ordered_json summary = nlohmann::ordered_json::parse(read_file(out + "/summary.json"));
        // The path, and what the wall clock decides: run time, stage times,
        // and how often camera_sim samples a moving head.
        for (const char *time : {"source", "wall_seconds", "analysed_fps", "stages"}) {
            summary.erase(time);
        }
        // Came after the expectation was stored; a raw clip has no frame that fails.
        EXPECT_EQ(summary["source_frames_failed"], 0);
        summary.erase("source_frames_failed");
        // So did the count of commands: auto framing ran from the first frame to the last.
        EXPECT_EQ(summary["auto_framing"],
                  nlohmann::ordered_json::parse("{\"run_frames\": " + summary["frames"]["taken"].dump() +
                                                ", \"stop_frames\": 0, \"off_passes\": 0, \"switches\": 0}"));
        summary.erase("auto_framing");
        summary["camera"].erase("state_samples");
        const std::string expected = std::string(FACEDET_TEST_DATA_DIR) + "/expected/across_and_back." + pace;
        const std::pair<std::string, std::string> files[] = {
            {".frames.log", read_file(out + "/logs/frames.log")},
            {".packets", packets},
            {".summary.json", summary.dump(1) + "\n"}};
        for (const auto &[suffix, actual] : files) {
            if (update) {
                write_file(expected + suffix, actual);
            }
            EXPECT_EQ(actual, read_file(expected + suffix)) << pace << suffix;
        }
    }
}
#endif

TEST(ReplayRecording, RefusesWhatItCannotReadInOneLineNamingTheFileAndStartsNothing) {
    TempDir dir;
    RecordingBuilder(2).frame(0, {}).write(dir.file("newer"));
    RecordingBuilder(recording::kFormatVersion, {640, 360, 11, 640 * 360, 640 * 360 / 2})
        .write(dir.file("big"));
    mkdir(dir.file("empty").c_str(), 0755);
    write_file(dir.file("notes.fdr"), "a text, not a recording");
    const std::string clip = dir.file("clip.nv12");
    write_file(clip, std::string(416 * 234 * 3 / 2, 'x'));
    struct Row {
        std::vector<std::string> args;
        std::string line;  // the whole of stderr, or its start for usage errors
    } rows[] = {
        {{dir.file("newer"), "--out", dir.file("o1")},
         "facedet_replay: " + dir.file("newer/recording.fdr") +
             ": recording format version 2 is newer than this reader's 1\n"},
        {{dir.file("big"), "--out", dir.file("o2")},
         "facedet_replay: " + dir.file("big/recording.fdr") +
             ": frames of 640x360, pixel format 11, 230400 + 115200 bytes; this reader takes 416x234, pixel "
             "format 11, 97344 + 48672 bytes\n"},
        {{dir.file("empty"), "--out", dir.file("o3")},
         "facedet_replay: " + dir.file("empty/recording.fdr") + ": cannot open: No such file or directory\n"},
        {{dir.file("notes.fdr"), "--out", dir.file("o6")},
         "facedet_replay: " + dir.file("notes.fdr") + ": not a faceDet recording\n"},
        {{clip, "--out", dir.file("o4"), "--expect-identical"},
         "facedet_replay: --expect-identical checks the replay of a recording, and '" + clip + "' is none\n"},
        {{clip, "--out", dir.file("o5"), "--camera-log", clip},
         "facedet_replay: --camera-log reads a camera's log alone: give no SOURCE\n"},
    };
    for (const Row &row : rows) {
        const Replay r = replay(dir, row.args);
        EXPECT_EQ(r.status, 2) << row.args[0];
        EXPECT_EQ(r.err.substr(0, row.line.size()), row.line);
        EXPECT_EQ(count_of(r.err, "\n"), 1u) << r.err;
    }
    for (const char *out : {"o1", "o2", "o3", "o4", "o5", "o6"}) {
        EXPECT_FALSE(file_exists(dir.file(out))) << out;
    }
}

// Cut inside its eighth frame: the seven whole frames play, and every output says what was cut.
TEST(ReplayRecording, ACutRecordingPlaysItsWholeRecordsAndSaysHowManyWereCut) {
    TempDir dir;
    const RecordingBuilder rec = grey_recording(12);
    rec.write(dir.file("rec"), rec.record_ends()[7] + 1000);
    const Replay r = replay(dir, {dir.file("rec"), "--out", dir.file("out"), "--expect-identical"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_NE(r.out.find("recording: 7 frames (8 records; damaged at byte "), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("prediction: identical: 7 frames, 0 moves"), std::string::npos) << r.out;
    const nlohmann::json s = summary(dir, "out");
    EXPECT_EQ(s["pace"], "recorded");
    EXPECT_EQ(s["frames"]["taken"], 7);
    EXPECT_EQ(s["recording"]["records_cut"], 1);
    EXPECT_EQ(s["prediction"]["identical"], true);
    ASSERT_EQ(s["notes"].size(), 1u) << s["notes"];
    EXPECT_NE(s["notes"][0].get<std::string>().find("the recording is damaged"), std::string::npos);
    EXPECT_NE(read_file(dir.file("out/report.html")).find("records cut by damage</th><td>1<"),
              std::string::npos);
}

// A camera that moved where the PC's daemon, finding no face, sends nothing:
// the check names the frame and --expect-identical fails. Then the daemon's
// log of that replay, its first frames cut as a rotation leaves them, is read
// from the first whole frame, with the figures of a camera.
TEST(ReplayRecording, ADifferenceFailsTheExpectationAndACameraLogCutInAFrameIsReadFromTheFirstWholeFrame) {
    TempDir dir;
    RecordingBuilder rec = grey_recording(14);
    rec.datagram(Kind::CameraPacket, 2800000, {0x81, 0x01, 0x04, 0x47, 0, 0, 0, 0, 0xff})
        .end()
        .write(dir.file("rec"));
    const Replay run = replay(dir, {dir.file("rec"), "--out", dir.file("run"), "--expect-identical"});
    EXPECT_EQ(run.status, 3) << run.out << run.err;
    EXPECT_NE(
        run.out.find("prediction: differs at recorded frame 14 (2.60 s): the packets differ; camera sent: "
                     "81 01 04 47 00 00 00 00 ff; PC sent: none; PC faces: none"),
        std::string::npos)
        << run.out;
    EXPECT_EQ(summary(dir, "run")["prediction"]["first_difference"]["frame"], 14);
    EXPECT_NE(run.out.find("\n  this PC ran its own x86-64 build, whose int8 network rounds"),
              std::string::npos);
    const std::string log = read_file(dir.file("run/logs/daemon.out"));
    const size_t third = log.find("frameNumber = 3-");
    ASSERT_NE(third, std::string::npos);
    write_file(dir.file("cut.log"), log.substr(third + 20, log.rfind('\n') - third - 25));
    const Replay r = replay(dir, {"--camera-log", dir.file("cut.log"), "--out", dir.file("out")});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_NE(r.out.find("camera log read: 11 frames from the first whole one"), std::string::npos) << r.out;
    const nlohmann::json s = summary(dir, "out");
    EXPECT_EQ(s["auto_framing"]["run_frames"], 11);
    EXPECT_EQ(s["frames"]["analysed"], 5);
    EXPECT_EQ(s["camera_frame_time"]["count"], 5);
    EXPECT_TRUE(file_exists(dir.file("out/timeline.png")));
    EXPECT_FALSE(file_exists(dir.file("out/logs"))) << "no run, so no logs";
}
