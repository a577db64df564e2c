// The prediction check end to end: the camera's own configuration records
// itself under qemu in realtime, dropping frames as a slow camera does, while
// auto framing is switched on, stopped and on again; the recording then
// replays on the PC with the camera build's packets, and the float engine
// differs at a named frame.
#include <unistd.h>

#include <filesystem>
#include <thread>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "control.h"
#include "daemon_fixture.h"

namespace {

class PredictionRun : public DaemonTest {
  protected:
    bool ctl(const std::string &word) {
        uint8_t bytes[2];
        return control_bytes(word, bytes) &&
               eventually([&] { return send_control(dir_.path(), bytes); }, std::chrono::seconds(20));
    }

    struct Replay {
        int status = -1;
        std::string out;
        nlohmann::json summary;
    };
    Replay replay(const std::string &recording, const std::string &out, std::vector<std::string> options) {
        options.insert(options.begin(), {recording, "--out", dir_.file(out)});
        auto child = spawn(FACEDET_REPLAY_BIN, options, dir_.path(), {{"FACEDET_ARM_DAEMON", armDaemon_}});
        Replay r;
        r.status = child->wait_exit(std::chrono::seconds(280));
        r.out = child->out();
        if (file_exists(dir_.file(out + "/summary.json"))) {
            r.summary = nlohmann::json::parse(read_file(dir_.file(out + "/summary.json")));
        }
        return r;
    }

    const std::string armDaemon_ = FACEDET_ARM_DAEMON_DEFAULT;
};

TEST_F(PredictionRun, TheCamerasRecordingReplaysIdenticallyOnTheCameraBuildAndTheFloatEngineDiffers) {
    if (camera_qemu_script().empty() || !file_exists(armDaemon_)) {
        GTEST_SKIP() << "no camera-qemu build, arm build or qemu-arm (scripts/camera-qemu.sh builds them)";
    }
    const std::string clip = dir_.file("walk.nv12");
    ASSERT_EQ(spawn(SCENARIO_CLIP_BIN,
                    {"--scenario", "walk_across", "--out", clip, "--shared", FACEDET_SHARED_DIR}, dir_.path())
                  ->wait_exit(std::chrono::seconds(120)),
              0);
    auto sim =
        spawn(CAMERA_SIM_BIN, {"--runtime-dir", dir_.path(), "--log", dir_.file("sim.jsonl")}, dir_.path());
    ASSERT_TRUE(sim->wait_for_output("camera_sim: listening on", std::chrono::seconds(20)));
    auto daemon = start_camera_qemu({{"FACEDET_SOURCE", clip},
                                     {"FACEDET_PACE", "realtime"},
                                     {"FACEDET_LOOP", "1"},
                                     {"FACEDET_RECORD", dir_.file("rec")}});
    ASSERT_TRUE(ctl("run"));
    for (const auto &[seconds, word] : std::vector<std::pair<int, const char *>>{{6, "stop"}, {2, "run"}}) {
        std::this_thread::sleep_for(std::chrono::seconds(seconds));
        ASSERT_TRUE(ctl(word));
    }
    std::this_thread::sleep_for(std::chrono::seconds(4));
    daemon->signal(SIGTERM);
    ASSERT_EQ(daemon->wait_exit(std::chrono::seconds(30)), 0) << daemon->err();
    sim->signal(SIGTERM);
    EXPECT_EQ(sim->wait_exit(std::chrono::seconds(20)), 0);
    const std::string recording = std::filesystem::directory_iterator(dir_.file("rec"))->path().string();

    const Replay same = replay(recording, "arm", {"--arm", "--expect-identical"});
    ASSERT_EQ(same.status, 0) << same.out;
    const nlohmann::json &prediction = same.summary["prediction"];
    EXPECT_EQ(prediction["identical"], true);
    EXPECT_EQ(prediction["frames"], same.summary["recording"]["frames"]);
    EXPECT_GT(prediction["moves"].get<int>(), 5);
    EXPECT_NE(same.out.find("prediction: identical: " + prediction["frames"].dump() + " frames, "),
              std::string::npos)
        << same.out;
    EXPECT_GT(same.summary["camera_frame_time"]["count"].get<int>(), 5);
    EXPECT_EQ(same.summary["auto_framing"]["switches"], 2);

    const Replay other = replay(recording, "float", {"--engine", "opencv", "--expect-identical"});
    EXPECT_EQ(other.status, 3) << other.out;
    const nlohmann::json &difference = other.summary["prediction"]["first_difference"];
    ASSERT_TRUE(difference.is_object()) << other.summary.dump();
    EXPECT_GT(difference["frame"].get<int>(), 9) << "the warm-up sends nothing";
    EXPECT_FALSE(difference["camera_packets"].empty() && difference["pc_packets"].empty());
    EXPECT_NE(other.out.find("prediction: differs at recorded frame " + difference["frame"].dump() + " ("),
              std::string::npos)
        << other.out;
}

}  // namespace
