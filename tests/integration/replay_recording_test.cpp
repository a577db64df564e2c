// facedet_replay on flight recordings it must refuse or read in part, and on a
// camera's console log alone.
#include <sys/stat.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "process_helpers.h"
#include "recording_builder.h"
#include "temp_dir.h"

using namespace std::chrono_literals;
using recording::Kind;

namespace {

struct Replay {
    int status = -1;
    std::string out, err;
};

Replay replay(const TempDir &dir, const std::vector<std::string> &args) {
    ChildProcess::Options options;
    options.args = args;
    options.workDir = dir.path();
    options.unsetEnv = {"FACEDET_SOURCE", "FACEDET_PACE", "FACEDET_RUNTIME_DIR", "FACEDET_SHM_KEY"};
    ChildProcess child(FACEDET_REPLAY_BIN, options);
    const int status = child.wait_exit(300s);
    return {status, child.out(), child.err()};
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

TEST(ReplayRecording, RefusesWhatItCannotReadInOneLineNamingTheFileAndStartsNothing) {
    TempDir dir;
    RecordingBuilder(2).frame(0, {}).write(dir.file("newer"));
    RecordingBuilder(recording::kFormatVersion, {640, 360, 11, 640 * 360, 640 * 360 / 2})
        .write(dir.file("big"));
    mkdir(dir.file("empty").c_str(), 0755);
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
    for (const char *out : {"o1", "o2", "o3", "o4", "o5"}) {
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
}
