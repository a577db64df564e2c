// facedet_replay end to end: the real daemon and camera_sim play a clip, and
// the report, the figures and the video are read back.
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/videoio.hpp>

#include "child_process.h"
#include "temp_dir.h"

using namespace std::chrono_literals;

namespace {

const std::string kTalkingHead =
    std::string(FACEDET_SHARED_DIR) + "/data/videos/talking_head_single_person.mp4";

// Sanitizer builds are several times slower; the tool has its own time-outs.
constexpr auto kRunLimit = 300s;

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
    Replay r;
    r.status = child.wait_exit(kRunLimit);
    r.out = child.out();
    r.err = child.err();
    return r;
}

// A plain grey raw clip: frames without any face.
std::string grey_clip(const TempDir &dir, int frames) {
    const std::string path = dir.file("grey.nv12");
    write_file(path, std::string(static_cast<size_t>(416 * 234 * 3 / 2) * frames, '\x80'));
    return path;
}

std::string chromium() {
    for (const char *path : {"/usr/bin/chromium", "/usr/bin/chromium-browser"}) {
        if (access(path, X_OK) == 0) {
            return path;
        }
    }
    return "";
}

// Runs headless Chromium on a local page with a fresh profile and no network services.
int run_chromium(const TempDir &dir, const std::vector<std::string> &extra, const std::string &page,
                 std::string *out) {
    ChildProcess::Options options;
    options.args = {"--headless",
                    "--no-sandbox",
                    "--disable-gpu",
                    "--disable-background-networking",
                    "--disable-component-update",
                    "--disable-sync",
                    "--no-first-run",
                    "--user-data-dir=" + dir.file("chromium-profile")};
    options.args.insert(options.args.end(), extra.begin(), extra.end());
    options.args.push_back("file://" + page);
    options.workDir = dir.path();
    ChildProcess child(chromium(), options);
    const int status = child.wait_exit(120s);
    *out = child.out();
    return status;
}

// A number of summary.json; NaN for null or a missing key.
double figure(const std::string &json, const std::string &key) {
    const size_t at = json.find("\"" + key + "\": ");
    return at == std::string::npos ? NAN : std::strtod(json.c_str() + at + key.size() + 4, nullptr);
}

long file_size(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : -1;
}

}  // namespace

// One lockstep replay of a clip with one large face, checked from its figures,
// its video and its page as a browser shows it.
class ReplayTalkingHead : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        dir_ = new TempDir;
        run_ = new Replay(replay(*dir_, {kTalkingHead, "--out", dir_->file("out"), "--lockstep"}));
    }
    static void TearDownTestSuite() {
        delete run_;
        delete dir_;
    }
    static std::string out(const std::string &name) { return dir_->file("out/" + name); }

    static TempDir *dir_;
    static Replay *run_;
};
TempDir *ReplayTalkingHead::dir_ = nullptr;
Replay *ReplayTalkingHead::run_ = nullptr;

TEST_F(ReplayTalkingHead, SummaryCountsEveryFrameAndTheMoveAndTheVideoEachFrame) {
    ASSERT_EQ(run_->status, 0) << run_->out << run_->err;
    const std::string json = read_file(out("summary.json"));
    EXPECT_NE(json.find("\"complete\": true"), std::string::npos) << json;
    // Lockstep: nothing dropped; 9 warm-up frames before the analysis starts.
    EXPECT_NE(json.find("\"delivered\": 62, \"taken\": 62, \"dropped\": 0"), std::string::npos) << json;
    EXPECT_NE(json.find("\"analysed\": 53"), std::string::npos) << json;
    EXPECT_NE(json.find("\"no_face_found\": false"), std::string::npos) << json;
    // The daemon frames the one person once and holds still after.
    const std::string log = read_file(out("logs/daemon.out"));
    EXPECT_EQ(count_of(log, "zoomPoint = "), 1u);
    EXPECT_NE(json.find("\"moves\": 1,"), std::string::npos) << json;
    EXPECT_NE(json.find("\"packets\": 2"), std::string::npos) << json;
    EXPECT_EQ(json.find("\"first_move_seconds\": null"), std::string::npos) << json;
    // The video has one frame per delivered frame, side by side.
    cv::VideoCapture video(out("replay.mp4"));
    ASSERT_TRUE(video.isOpened());
    EXPECT_EQ(video.get(cv::CAP_PROP_FRAME_WIDTH), 1280);
    EXPECT_EQ(video.get(cv::CAP_PROP_FRAME_HEIGHT), 360);
    EXPECT_NEAR(video.get(cv::CAP_PROP_FPS), 12.0, 0.01);
    int frames = 0;
    cv::Mat frame;
    while (video.read(frame)) {
        ++frames;
    }
    EXPECT_EQ(frames, 62);
    EXPECT_GT(file_size(out("timeline.png")), 5000);
    // No temporary file is left beside the results.
    EXPECT_FALSE(file_exists(out(".replay.tmp.mp4")));
    EXPECT_FALSE(file_exists(out(".report.html.tmp")));
}

TEST_F(ReplayTalkingHead, PageShowsVideoTimelineAndTablesInABrowser) {
    ASSERT_EQ(run_->status, 0) << run_->out << run_->err;
    if (chromium().empty()) {
        GTEST_SKIP() << "chromium is not installed (Debian package chromium)";
    }
    std::string dom;
    ASSERT_EQ(run_chromium(*dir_, {"--dump-dom"}, out("report.html"), &dom), 0);
    EXPECT_NE(dom.find("<video id=\"replay\" src=\"replay.mp4\""), std::string::npos) << dom;
    EXPECT_NE(dom.find("<img id=\"timeline\" src=\"timeline.png\""), std::string::npos) << dom;
    EXPECT_NE(dom.find("<table id=\"run\">"), std::string::npos);
    EXPECT_NE(dom.find("<table id=\"stages\">"), std::string::npos);
    EXPECT_NE(dom.find("frames analysed</th><td>53"), std::string::npos) << dom;
}

TEST(ReplayBadInput, UnreadableSourceStartsNothing) {
    TempDir dir;
    write_file(dir.file("broken.mp4"), "not a video at all");
    const Replay r = replay(dir, {dir.file("broken.mp4"), "--out", dir.file("out")});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("nothing was started"), std::string::npos) << r.err;
    EXPECT_FALSE(file_exists(dir.file("out/summary.json")));

    const Replay missing = replay(dir, {dir.file("none.nv12"), "--out", dir.file("out")});
    EXPECT_EQ(missing.status, 2);
    EXPECT_NE(missing.err.find("cannot read"), std::string::npos) << missing.err;
}

TEST(ReplayBadInput, OutputFolderWithFilesNeedsForce) {
    TempDir dir;
    const std::string clip = grey_clip(dir, 14);
    mkdir(dir.file("out").c_str(), 0755);
    write_file(dir.file("out/summary.json"), "{\"complete\": true, \"stale\": true}\n");
    const Replay refused = replay(dir, {clip, "--out", dir.file("out"), "--lockstep"});
    EXPECT_EQ(refused.status, 2);
    EXPECT_NE(refused.err.find("--force"), std::string::npos) << refused.err;
    EXPECT_NE(read_file(dir.file("out/summary.json")).find("stale"), std::string::npos);

    // Forced: the stale figures are replaced; the grey clip has no face. A
    // truth file that cannot be scored is named and the run goes on unscored.
    write_file(dir.file("truth.csv"), "frame,person,x,y,w,h,score\n");
    const Replay forced = replay(
        dir, {clip, "--out", dir.file("out"), "--lockstep", "--force", "--truth", dir.file("truth.csv")});
    ASSERT_EQ(forced.status, 0) << forced.out << forced.err;
    EXPECT_NE(forced.err.find("truth.csv: line 1: unknown column 'score'"), std::string::npos) << forced.err;
    const std::string json = read_file(dir.file("out/summary.json"));
    EXPECT_EQ(json.find("stale"), std::string::npos);
    EXPECT_EQ(json.find("\"truth\": {"), std::string::npos) << json;
    EXPECT_NE(json.find("\"no_face_found\": true"), std::string::npos) << json;
    EXPECT_NE(json.find("\"analysed\": 5"), std::string::npos) << json;
    EXPECT_NE(json.find("\"moves\": 0,"), std::string::npos) << json;
    EXPECT_NE(read_file(dir.file("out/report.html")).find("No face was found"), std::string::npos);
    EXPECT_NE(forced.out.find("no face was found"), std::string::npos) << forced.out;
}

TEST(ReplayBadInput, DaemonPastItsTimeLimitIsReportedIncomplete) {
    TempDir dir;
    // Ten seconds of frames at the real pace, stopped after four.
    const std::string clip = grey_clip(dir, 300);
    const Replay r = replay(dir, {clip, "--out", dir.file("out"), "--timeout", "4"});
    EXPECT_EQ(r.status, 1) << r.out << r.err;
    const std::string json = read_file(dir.file("out/summary.json"));
    EXPECT_NE(json.find("\"complete\": false"), std::string::npos) << json;
    EXPECT_NE(json.find("after 4 s (time-out)"), std::string::npos) << json;
    EXPECT_NE(read_file(dir.file("out/report.html")).find("incomplete: daemon"), std::string::npos);
    EXPECT_NE(r.out.find("incomplete"), std::string::npos) << r.out;
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
    EXPECT_NE(json.find("\"truth\": {\"file\": \"" + dir.file("truth.csv")), std::string::npos) << json;
    EXPECT_EQ(figure(json, "frames_scored"), 60) << json;
    EXPECT_GT(figure(json, "frames_with_person"), 10) << json;
    EXPECT_GE(figure(json, "face_in_view"), 0.8) << json;
    EXPECT_TRUE(figure(json, "face_height_median") > 0.05 && figure(json, "face_height_p95") < 1) << json;
    EXPECT_TRUE(figure(json, "entry_to_frame_s") > 0 && figure(json, "entry_to_frame_s") < 1.5) << json;
    EXPECT_GT(figure(json, "moves_per_minute"), 0) << json;
    EXPECT_NE(read_file(dir.file("out/report.html")).find("id=\"truth\""), std::string::npos);
    // The camera moved on the source's time: frames 1/30 s apart from 0, and
    // no camera state later than the last frame.
    const std::string frames = read_file(dir.file("out/logs/frames.log"));
    EXPECT_EQ(frames.rfind("0 0 taken", 0), 0u) << frames.substr(0, 80);
    EXPECT_NE(frames.find("\n59 1966667 taken"), std::string::npos);
    const std::string sim = read_file(dir.file("out/logs/camera_sim.jsonl"));
    for (size_t at = sim.find("{\"t_us\":"); at != std::string::npos; at = sim.find("{\"t_us\":", at + 1)) {
        ASSERT_LE(std::strtoll(sim.c_str() + at + 8, nullptr, 10), 1966667) << sim.substr(at, 80);
    }
}
#endif

TEST(ReplayGamma, MissingPeerIsNamedOrItsAnswersAreReported) {
    TempDir dir;
    const std::string clip = grey_clip(dir, 20);
    const Replay r = replay(dir, {clip, "--out", dir.file("out"), "--lockstep", "--gamma"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    const std::string json = read_file(dir.file("out/summary.json"));
    if (r.err.find("gamma_peer not built") != std::string::npos) {
        EXPECT_NE(json.find("\"status\": \"gamma_peer not built\""), std::string::npos) << json;
    } else {
        EXPECT_NE(json.find("\"status\": \"ran\""), std::string::npos) << json;
        EXPECT_TRUE(file_exists(dir.file("out/logs/gamma_peer.out")));
    }
}
