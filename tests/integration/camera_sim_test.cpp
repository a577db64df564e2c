// The daemon's VISCA layer against the real camera_sim process, camera_sim
// under random packets and signals, and the two small tools.
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "process_helpers.h"
#include "ipc_test_env.h"
#include "net_communication/net_communication.h"
#include "net_communication/net_state.h"
#include "output_capture.h"
#include "temp_dir.h"
#include "visca/visca.h"

using namespace std::chrono_literals;
using Bytes = std::vector<uint8_t>;

namespace {

std::unique_ptr<ChildProcess> start_camera_sim(const std::string &log) {
    auto sim = spawn(CAMERA_SIM_BIN, {"--runtime-dir", ipc_runtime_dir(), "--log", log}, ipc_runtime_dir());
    EXPECT_TRUE(sim->wait_for_output("camera_sim: listening on", 20s)) << sim->err();
    return sim;
}

// A fresh feature-camera endpoint of this process.
void restart_feature_endpoint() {
    NetState &state = net_state();
    if (state.featureRxRunning) {
        state.featureStopRequest = 1;
        ASSERT_TRUE(eventually([&] { return state.featureRxRunning == 0; }));
    }
    set_camera_reply_handler(VISCA_Command_Receive);
    ASSERT_EQ(featureCamera_udp_init(), 0);
}

// Pan and tilt by inquiry 3, waiting for the reply.
bool pan_tilt(int32_t *pan, int32_t *tilt) {
    g_receiveFlag = 0;
    send_command(0, kViscaPanTiltInquiry, nullptr);
    if (!eventually([] { return g_receiveFlag.load() == 1; }, 5s)) {
        return false;
    }
    *pan = g_receiveData[0];
    *tilt = g_receiveData[1];
    return true;
}

std::vector<std::string> lines_with(const std::string &text, const std::string &needle) {
    std::vector<std::string> found;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (line.find(needle) != std::string::npos) {
            found.push_back(line);
        }
    }
    return found;
}

}  // namespace

TEST(CameraSim, MovesAtTheCommandedSpeedsAndAnswersWithItsPosition) {
    const std::string log = ipc_runtime_dir() + "/move.jsonl";
    auto sim = start_camera_sim(log);
    restart_feature_endpoint();
    OutputCapture out;

    EXPECT_EQ(visca_inquire_zoom(), 0);
    EXPECT_EQ(g_zoomPosition.load(), 1920);  // starts at the full view

    g_objectData = {};
    g_objectData[kObjectPanPoint] = 300;
    g_objectData[kObjectTiltPoint] = -120;
    g_objectData[kObjectZoomPoint] = 960;
    const auto sent = std::chrono::steady_clock::now();
    visca_move_to_object_at_speed(5, 2);  // 300 px/s and 120 px/s: both take a second
    int32_t pan = 0, tilt = 0;
    ASSERT_TRUE(eventually([&] { return pan_tilt(&pan, &tilt) && pan == 300 && tilt == -120; }, 20s))
        << pan << " " << tilt;
    EXPECT_GE(std::chrono::steady_clock::now() - sent, 900ms);
    EXPECT_EQ(visca_inquire_zoom(), 0);
    EXPECT_EQ(g_zoomPosition.load(), 960);
    out.finish();

    sim->signal(SIGTERM);
    EXPECT_EQ(sim->wait_exit(20s), 0);
    const std::string text = read_file(log);
    EXPECT_EQ(count_of(text, "\"event\":\"start\"") * 10 +
                  count_of(text, "\"event\":\"stop\",\"reason\":\"signal\""),
              11u);
    auto moves = lines_with(text, "\"name\":\"pan_tilt_absolute\"");
    ASSERT_EQ(moves.size(), 1u) << text;
    EXPECT_NE(moves[0].find("\"bytes\":\"81 01 44 02 05 02 00 01 02 0c 0f 0f 08 08 ff\""), std::string::npos)
        << moves[0];
}

// The "bytes" of every packet camera_sim logged, in order.
std::vector<std::string> received(const std::string &log) {
    std::vector<std::string> packets;
    for (const std::string &line : lines_with(read_file(log), "\"event\":\"rx\"")) {
        const size_t at = line.find("\"bytes\":\"") + 9;
        packets.push_back(line.substr(at, line.find('"', at) - at));
    }
    return packets;
}

std::string hex(int id, std::vector<int32_t> args) {
    args.resize(4, 0);
    uint8_t out[kViscaMaxPacket];
    const int length = visca_encode(id, args.data(), out);
    std::string text;
    for (int i = 0; i < length; ++i) {
        char byte[4];
        snprintf(byte, sizeof byte, i ? " %02x" : "%02x", out[i]);
        text += byte;
    }
    return text;
}

TEST(CameraSim, EveryCommandAndMoveReachesTheCameraByteForByte) {
    const std::string log = ipc_runtime_dir() + "/commands.jsonl";
    auto sim = start_camera_sim(log);
    restart_feature_endpoint();
    const int32_t args[4] = {0x25, 3, -200, 540};
    std::vector<std::string> expected;
    OutputCapture out;
    for (int id = 0; id <= kViscaLastCommand; ++id) {
        EXPECT_EQ(send_command(0, id, args), 0);
        expected.push_back(hex(id, {0x25, 3, -200, 540}));
    }
    EXPECT_EQ(send_command(1, 2, args), 0);  // no channel 1: nothing
    // Moves send the zoom, then the pan and tilt.
    g_objectData = {};
    g_objectData[kObjectPanPoint] = -200;
    g_objectData[kObjectTiltPoint] = 120;
    g_objectData[kObjectZoomPoint] = 960;
    visca_move_to_object();
    visca_move_to_object_at_speed(7, 3);
    visca_move_home();
    visca_pan_tilt_drive(5, 6, 1, 3);
    visca_zoom_drive(4, 2);
    visca_zoom_to(1920);
    for (const auto &[id, a] : std::vector<std::pair<int, std::vector<int32_t>>>{{0, {960}},
                                                                                 {1, {15, 10, -200, 120}},
                                                                                 {0, {960}},
                                                                                 {1, {7, 3, -200, 120}},
                                                                                 {0, {0}},
                                                                                 {1, {15, 10}},
                                                                                 {4, {5, 6, 1, 3}},
                                                                                 {18, {4, 2}},
                                                                                 {0, {1920}}}) {
        expected.push_back(hex(id, a));
    }
    ASSERT_TRUE(eventually([&] { return received(log).size() >= expected.size(); }));
    const std::string text = out.finish();
    EXPECT_NE(text.find("\n\n\n ******** hSpeed=7, vSpeed=3, ********\n\n\n"), std::string::npos);
    EXPECT_NE(text.find("ret == 9\nfeatureCamera_addr.sun_family == 1\n"), std::string::npos) << text;
    sim->signal(SIGTERM);
    EXPECT_EQ(sim->wait_exit(20s), 0);
    EXPECT_EQ(received(log), expected);
}

TEST(CameraSim, WithoutACameraSendsFailAndInquiriesGiveUpAfterHalfASecond) {
    unlink((ipc_runtime_dir() + "/featureCamera_addr.socket").c_str());
    restart_feature_endpoint();
    g_receiveData[0] = 77;
    OutputCapture out;
    OutputCapture err(2);
    EXPECT_EQ(visca_move_to_object(), 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(visca_inquire_zoom(), 1);
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_NE(err.finish().find("sendto: No such file or directory"), std::string::npos);
    EXPECT_EQ(count_of(out.finish(), "ret == -1\nfeatureCamera_addr.sun_family == 1\n"), 3u);
    EXPECT_GE(waited, 450ms);
    EXPECT_LT(waited, 10s);
    EXPECT_EQ(g_zoomPosition.load(), 77);  // whatever the slot held
}

TEST(CameraSim, MalformedPacketsGetSyntaxErrorsAndOnlyASignalOrTheTimeLimitStopsIt) {
    const std::string log = ipc_runtime_dir() + "/fuzz.jsonl";
    auto sim = start_camera_sim(log);
    const std::string simPath = ipc_runtime_dir() + "/featureCamera_addr.socket";
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un to{AF_UNIX, {}};
    snprintf(to.sun_path, sizeof to.sun_path, "%s", simPath.c_str());
    // Its own name: a unique abstract one.
    ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&to), sizeof(sa_family_t)), 0);
    const timeval wait = {5, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    auto exchange = [&](const Bytes &packet) {
        EXPECT_EQ(
            sendto(fd, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr *>(&to), sizeof to),
            static_cast<ssize_t>(packet.size()));
        uint8_t reply[64];
        ssize_t n = recv(fd, reply, sizeof reply, 0);
        return n < 0 ? Bytes() : Bytes(reply, reply + n);
    };
    const Bytes syntaxError = {0x90, 0x60, 0x02, 0xFF};
    for (const Bytes &bad : {Bytes{}, Bytes{0x81}, Bytes(600, 0x81), Bytes{0x80, 0x09, 0x04, 0x47, 0xFF},
                             Bytes{0x81, 0x09, 0x04, 0x47}}) {
        EXPECT_EQ(exchange(bad), syntaxError) << bad.size();
    }
    // Still a camera: an inquiry gets its 11-byte answer.
    EXPECT_EQ(exchange({0x81, 0x09, 0x06, 0x12, 0xFF}).size(), 11u);
    close(fd);

    sim->signal(SIGINT);
    EXPECT_EQ(sim->wait_exit(20s), 0);
    EXPECT_FALSE(file_exists(simPath));
    const std::string text = read_file(log);
    EXPECT_GE(count_of(text, "\"error\":\"too short\""), 2u);

    // Given a time limit, it ends by itself.
    auto limited =
        spawn(CAMERA_SIM_BIN, {"--runtime-dir", ipc_runtime_dir(), "--seconds", "0.3"}, ipc_runtime_dir());
    EXPECT_EQ(limited->wait_exit(20s), 0);
    EXPECT_NE(limited->out().find("camera_sim: stopped (time limit)"), std::string::npos) << limited->out();
}

TEST(FacedetCtl, SwitchesTheDaemonsCommandByte) {
    ipc_runtime_dir();
    ASSERT_EQ(detect_camera_udp_init(), 0);
    const struct {
        std::vector<std::string> args;
        uint8_t first, second;
    } cases[] = {
        {{"run"}, 1, 1}, {{"off"}, 1, 2}, {{"stop"}, 1, 0}, {{"0x01", "0x02"}, 1, 2}, {{"7", "0"}, 7, 0}};
    OutputCapture out;
    for (const auto &c : cases) {
        std::vector<std::string> args = {"--runtime-dir", ipc_runtime_dir()};
        args.insert(args.end(), c.args.begin(), c.args.end());
        auto ctl = spawn(FACEDET_CTL_BIN, args, ipc_runtime_dir());
        EXPECT_EQ(ctl->wait_exit(20s), 0) << ctl->err();
        EXPECT_TRUE(eventually([&] { return MsgBuf[0] == c.first && MsgBuf[1] == c.second; })) << c.args[0];
    }
    out.finish();

    for (const auto &[args, error] :
         {std::pair<std::vector<std::string>, std::string>{{"1", "300"}, "'300' is not a byte"},
          {{}, "say run, stop, off or two bytes"}}) {
        auto bad = spawn(FACEDET_CTL_BIN, args, ipc_runtime_dir());
        EXPECT_EQ(bad->wait_exit(20s), 2);
        EXPECT_NE(bad->err().find(error), std::string::npos) << bad->err();
    }
    TempDir empty;
    auto noDaemon = spawn(FACEDET_CTL_BIN, {"--runtime-dir", empty.path(), "run"}, ipc_runtime_dir());
    EXPECT_EQ(noDaemon->wait_exit(20s), 1);
    EXPECT_NE(noDaemon->err().find("cannot send to " + empty.path() +
                                   "/sin_addr.socket: No such file or directory"),
              std::string::npos)
        << noDaemon->err();
}

TEST(ShmTrackTool, WritesRecordsAndRemovesTheSegment) {
    ipc_runtime_dir();
    auto tool = spawn(SHM_TRACK_TEST_BIN, {"--rounds", "2", "--remove"}, ipc_runtime_dir());
    EXPECT_EQ(tool->wait_exit(20s), 0) << tool->err();
    EXPECT_EQ(tool->out(), "send data ok!!!\ncount:0\nsend data ok!!!\ncount:1\n");
    ipc_remove_segment();
}
