// The flight recorder never changes what the daemon does. The camera's own
// configuration under qemu, auto framing stopped (a full-view move every
// frame), sends a camera process that never reads the same packets with the
// same results, and takes the same frames, with the recorder as without it;
// also when the recording folder cannot be written, or the size limit is
// reached on the way. Lockstep, so that both runs see the same frames.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <sstream>

#include "daemon_fixture.h"
#include "recorded_run.h"

namespace {

using recording::Kind;
constexpr int kFrames = 30;

struct DaemonRun {
    int status = -1;
    std::string out, err, frameLog;
};

// The result of every send to the camera, in order, as the daemon prints it.
std::vector<int> send_results(const std::string &out) {
    std::vector<int> results;
    const std::string key = "ret == ";
    for (size_t at = out.find(key); at != std::string::npos; at = out.find(key, at + 1)) {
        results.push_back(atoi(out.c_str() + at + key.size()));
    }
    return results;
}

// The recorder's own lines on stderr.
std::vector<std::string> recorder_lines(const std::string &err) {
    std::vector<std::string> lines;
    std::istringstream in(err);
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("faceDet recorder: ", 0) == 0) {
            lines.push_back(line);
        }
    }
    return lines;
}

class RecorderRun : public DaemonTest {
  protected:
    DaemonRun run(const std::map<std::string, std::string> &recorder) {
        // A camera process that takes no packet: its queue fills after ten.
        const std::string cameraPath = dir_.file("featureCamera_addr.socket");
        unlink(cameraPath.c_str());
        const int camera = socket(AF_UNIX, SOCK_DGRAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        snprintf(address.sun_path, sizeof address.sun_path, "%s", cameraPath.c_str());
        EXPECT_EQ(bind(camera, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        std::map<std::string, std::string> env = {{"FACEDET_SOURCE", clip_},
                                                  {"FACEDET_PACE", "lockstep"},
                                                  {"FACEDET_EXIT_AT_END", "1"},
                                                  {"FACEDET_FRAME_LOG", dir_.file("frames.log")}};
        env.insert(recorder.begin(), recorder.end());
        auto daemon = start_camera_qemu(env);
        DaemonRun r;
        r.status = daemon->wait_exit(120s);
        r.out = daemon->out();
        r.err = daemon->err();
        r.frameLog = read_file(dir_.file("frames.log"));
        close(camera);
        return r;
    }

    std::string clip_;
};

TEST_F(RecorderRun, DaemonTakesAndSendsTheSameWithAndWithoutIt) {
    if (camera_qemu_script().empty()) {
        GTEST_SKIP() << "no camera-qemu build or qemu-arm (scripts/camera-qemu.sh builds it)";
    }
    clip_ = raw_clip(kFrames);
    const DaemonRun without = run({});
    ASSERT_EQ(without.status, 0) << without.err;
    const std::vector<int> sent = send_results(without.out);
    ASSERT_EQ(frames_taken(without.frameLog).size(), static_cast<size_t>(kFrames));
    // Past the warm-up two packets a frame; the camera's queue takes the first few.
    ASSERT_EQ(sent.size(), 2u * (kFrames - 9));
    const long refused = std::count(sent.begin(), sent.end(), -1);
    ASSERT_TRUE(refused > 10 && refused < static_cast<long>(sent.size())) << refused;

    const std::string notAFolder = dir_.file("file");
    write_file(notAFolder, "");
    const struct {
        const char *name;
        std::map<std::string, std::string> env;
    } cases[] = {
        {"recording", {{"FACEDET_RECORD", dir_.file("rec")}}},
        {"unwritable folder", {{"FACEDET_RECORD", notAFolder + "/rec"}}},
        {"size limit reached", {{"FACEDET_RECORD", dir_.file("small")}, {"FACEDET_RECORD_MAX_MB", "1"}}},
    };
    std::map<std::string, DaemonRun> runs;
    for (const auto &c : cases) {
        const DaemonRun with = runs[c.name] = run(c.env);
        EXPECT_EQ(with.status, 0) << c.name;
        EXPECT_EQ(with.frameLog, without.frameLog) << c.name;
        EXPECT_EQ(send_results(with.out), sent) << c.name;
    }

    // Every frame and every send, with the daemon's own results.
    const RecordedRun rec = read_recorded_run(dir_.file("rec"));
    ASSERT_EQ(rec.error, "");
    EXPECT_TRUE(rec.ended) << rec.summary;
    EXPECT_EQ(rec.of(Kind::Frame).size(), static_cast<size_t>(kFrames));
    std::vector<int> recorded;
    for (const recording::Record *packet : rec.of(Kind::CameraPacket)) {
        recorded.push_back(packet->datagram.result);
        EXPECT_EQ(packet->datagram.error, packet->datagram.result < 0 ? EAGAIN : 0);
    }
    EXPECT_EQ(recorded, sent);
    EXPECT_EQ(recorder_lines(runs["recording"].err).size(), 1u) << runs["recording"].err;

    EXPECT_EQ(recorder_lines(runs["unwritable folder"].err),
              std::vector<std::string>{"faceDet recorder: cannot record into " + notAFolder + "/rec: mkdir " +
                                       notAFolder + "/rec: Not a directory; faceDet runs without recording"});

    // 1 MiB holds seven frames; from the first record that does not fit on,
    // everything is counted, in one run of drops, and the Dropped and End
    // records say so.
    const RecordedRun small = read_recorded_run(dir_.file("small"));
    ASSERT_EQ(small.error, "");
    EXPECT_TRUE(small.ended) << small.summary;
    EXPECT_EQ(small.of(Kind::Frame).size(), 7u);
    const std::vector<std::string> lines = recorder_lines(runs["size limit reached"].err);
    ASSERT_EQ(lines.size(), 3u) << runs["size limit reached"].err;
    EXPECT_EQ(lines[1], "faceDet recorder: dropping records: FACEDET_RECORD_MAX_MB=1 reached");
    const uint64_t dropped = small.of(Kind::End)[0]->end.dropped;
    EXPECT_EQ(lines[2], "faceDet recorder: " + std::to_string(dropped) + " records dropped until the end");
    EXPECT_EQ(small.dropped(), dropped);
    EXPECT_EQ(small.records.size() - 2 + dropped, rec.records.size() - 1)
        << "every event recorded or counted";
}

}  // namespace
