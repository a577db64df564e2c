// facedet_replay end to end: the real daemon and camera_sim play a clip, and
// the report, the figures and the video are read back.
#include <sys/stat.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/videoio.hpp>

#include "child_process.h"
#include "temp_dir.h"

using namespace std::chrono_literals;

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
    options.unsetEnv = {"FACEDET_SOURCE", "FACEDET_PACE",      "FACEDET_LOOP",        "FACEDET_EXIT_AT_END",
                        "FACEDET_FAULTS", "FACEDET_FRAME_LOG", "FACEDET_RUNTIME_DIR", "FACEDET_SHM_KEY"};
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
    for (const char *figure :
         {"\"complete\": true", "\"delivered\": 62, \"taken\": 62, \"dropped\": 0", "\"analysed\": 53",
          "\"no_face_found\": false", "\"moves\": 1,", "\"packets\": 2"}) {
        EXPECT_NE(json.find(figure), npos) << figure << "\n" << json;
    }
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

    // Forced: the stale figures are replaced; the grey clip has no face.
    const Replay r = replay(dir, {clip, "--out", dir.file("out"), "--lockstep", "--force", "--gamma"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    const std::string json = read_file(dir.file("out/summary.json"));
    EXPECT_EQ(json.find("stale"), npos);
    for (const char *figure : {"\"no_face_found\": true", "\"analysed\": 11", "\"moves\": 0,"}) {
        EXPECT_NE(json.find(figure), npos) << figure << "\n" << json;
    }
    EXPECT_NE(read_file(dir.file("out/report.html")).find("No face was found"), npos);
    EXPECT_NE(r.out.find("no face was found"), npos) << r.out;
    if (r.err.find("gamma_peer not built") != npos) {
        EXPECT_NE(json.find("\"status\": \"gamma_peer not built\""), npos) << json;
    } else {
        EXPECT_NE(json.find("\"status\": \"ran\""), npos) << json;
        EXPECT_TRUE(file_exists(dir.file("out/logs/gamma_peer.out")));
    }
}

TEST(ReplayBadInput, DaemonPastItsTimeLimitIsReportedIncomplete) {
    TempDir dir;
    // Ten seconds of frames at the real pace, stopped after four.
    const Replay r = replay(dir, {grey_clip(dir, 300), "--out", dir.file("out"), "--timeout", "4"});
    EXPECT_EQ(r.status, 1) << r.out << r.err;
    const std::string json = read_file(dir.file("out/summary.json"));
    EXPECT_NE(json.find("\"complete\": false"), npos) << json;
    EXPECT_NE(json.find("after 4 s (time-out)"), npos) << json;
    EXPECT_NE(read_file(dir.file("out/report.html")).find("incomplete: daemon"), npos);
    EXPECT_NE(r.out.find("incomplete"), npos) << r.out;
}
