// The reply slot, and the VISCA layer over the real feature-camera endpoint:
// commands as the camera receives them, inquiries against a camera that
// answers and against silence, and junk on the socket.
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <random>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "fake_camera.h"
#include "ipc_test_env.h"
#include "net_communication/net_communication.h"
#include "net_communication/net_state.h"
#include "output_capture.h"
#include "temp_dir.h"
#include "child_process.h"
#include "visca/visca.h"

using namespace std::chrono_literals;
using Bytes = std::vector<uint8_t>;

namespace {

const std::string kTrace = "\n\n ---------------VISCA_Command_Receive ----------------- case ";

void receive(const Bytes &packet) {
    VISCA_Command_Receive(packet.data(), static_cast<uint8_t>(packet.size()));
}

Bytes encoded(int id, const int32_t args[4]) {
    uint8_t out[kViscaMaxPacket];
    int length = visca_encode(id, args, out);
    return Bytes(out, out + length);
}

std::string feature_path() {
    net_paths_init();
    return featureCamera_path;
}

// Ends the VISCA receive thread the way its stop request does.
void stop_feature_endpoint() {
    NetState &state = net_state();
    if (state.featureRxRunning) {
        state.featureStopRequest = 1;
        ASSERT_TRUE(eventually([&] { return state.featureRxRunning == 0; }));
    }
}

// Bytes sent from `fd` that the receiver has not taken yet.
int unsent_bytes(int fd) {
    int bytes = 0;
    return ioctl(fd, SIOCOUTQ, &bytes) == 0 ? bytes : -1;
}

}  // namespace

TEST(ReplySlot, TracesByLengthAndLeavesIgnoredRepliesOut) {
    struct Case {
        Bytes packet;
        std::string trace;
        int count;
        int32_t first;
    };
    const Case cases[] = {
        {{0x90, 0x50, 0x02, 0xFF}, kTrace + "4 \n", 1, 2},
        {{0x90, 0x50, 0x0A, 0x05, 0xFF}, kTrace + "5 \n", 1, 5},
        {{0x90, 0x50, 0x01, 0x02, 0x03, 0x04, 0xFF}, kTrace + "7 zoom \n", 1, 0x1234},
        {{0x90, 0x50, 0x00, 0x00, 0x0F, 0x0F, 0x00, 0x00, 0x00, 0x01, 0xFF}, kTrace + "11 pt \n", 2, 0xFF},
        {{0x90, 0x50, 0, 0, 0, 0x01, 0x02, 0x03, 0, 0, 0, 0xFF}, "", 3, 1},  // decoded without a trace
        {{0x90, 0x41, 0x02, 0xFF}, "", 0, 0},
        {{0x90, 0x50, 0x0B, 0x05, 0xFF}, "", 0, 0},
        {{0x90, 0x41, 0xFF}, "", 0, 0},
        {{0x90, 0x50, 0x01, 0x02, 0x03, 0xFF}, "", 0, 0},
        {{0x90, 0x50, 0x01, 0x02, 0x03, 0x04, 0x05, 0xFF}, "", 0, 0},
        {Bytes(9, 0x50), "", 0, 0},
        {Bytes(10, 0x50), "", 0, 0},
        {Bytes(13, 0x50), "", 0, 0},
        {{}, "", 0, 0},
    };
    for (const Case &c : cases) {
        g_receiveFlag = 0;
        g_receiveData[0] = -7;
        OutputCapture out;
        receive(c.packet);
        EXPECT_EQ(out.finish(), c.trace) << "length " << c.packet.size();
        EXPECT_EQ(g_receiveFlag.load(), c.count > 0 ? 1 : 0) << "length " << c.packet.size();
        EXPECT_EQ(g_receiveData[0].load(), c.count > 0 ? c.first : -7) << "length " << c.packet.size();
    }
    // The first reply after an inquiry is kept: a second finds the slot taken.
    g_receiveFlag = 0;
    OutputCapture out;
    receive({0x90, 0x50, 0x00, 0x07, 0x08, 0x00, 0xFF});
    receive({0x90, 0x50, 0x0F, 0x0F, 0x03, 0x08, 0x00, 0x01, 0x00, 0x00, 0xFF});
    EXPECT_EQ(out.finish(), kTrace + "7 zoom \n" + kTrace + "11 pt \n");
    EXPECT_EQ(g_receiveData[0].load(), 1920);
    g_receiveFlag = 0;
}

class FeatureLink : public ::testing::Test {
  protected:
    void SetUp() override {
        ipc_runtime_dir();
        stop_feature_endpoint();
        ASSERT_EQ(featureCamera_udp_init(), 0);
        ASSERT_EQ(net_state().featureRxRunning.load(), 1);
        g_receiveFlag = 0;
    }
    void TearDown() override { unlink(feature_path().c_str()); }
};

TEST_F(FeatureLink, EveryCommandReachesTheCameraByteForByte) {
    FakeCamera camera(feature_path(), [](const Bytes &) { return Bytes(); });
    const int32_t args[4] = {0x25, 3, -200, 540};
    OutputCapture out;
    for (int id = 0; id <= kViscaLastCommand; ++id) {
        EXPECT_EQ(send_command(0, id, args), 0);
    }
    EXPECT_EQ(send_command(0, 19, args), 0);  // goes out empty
    EXPECT_EQ(send_command(1, 2, args), 0);   // no channel 1: nothing
    std::string text = out.finish();
    ASSERT_TRUE(eventually([&] { return camera.packets().size() >= 20; })) << camera.packets().size();
    std::this_thread::sleep_for(50ms);
    auto packets = camera.packets();
    ASSERT_EQ(packets.size(), 20u);
    for (int id = 0; id <= kViscaLastCommand; ++id) {
        EXPECT_EQ(packets[id], encoded(id, args)) << "id " << id;
    }
    EXPECT_TRUE(packets[19].empty());
    EXPECT_EQ(count_of(text, "featureCamera_addr.sun_family == 1\n"), 20u);
    EXPECT_NE(text.find("ret == 9\nfeatureCamera_addr.sun_family == 1\n"), std::string::npos);
    EXPECT_NE(text.find("ret == 15\n"), std::string::npos);
    EXPECT_NE(text.find("ret == 0\n"), std::string::npos);
}

TEST_F(FeatureLink, MovesSendZoomThenPanTilt) {
    FakeCamera camera(feature_path(), [](const Bytes &) { return Bytes(); });
    g_objectData = {};
    g_objectData.field[kObjectPan] = -200;
    g_objectData.field[kObjectTilt] = 120;
    g_objectData.field[kObjectZoom] = 960;
    OutputCapture out;
    visca_move_to_object();
    visca_move_to_object_at_speed(7, 3);
    visca_move_home();
    visca_pan_tilt_drive(5, 6, 1, 3);
    visca_zoom_drive(4, 2);
    visca_zoom_to(1920);
    std::string text = out.finish();
    EXPECT_NE(text.find("\n\n\n ******** hSpeed=7, vSpeed=3, ********\n\n\n"), std::string::npos);
    ASSERT_TRUE(eventually([&] { return camera.packets().size() >= 9; }));
    const int32_t zoom960[4] = {960, 0, 0, 0}, zoom0[4] = {0, 0, 0, 0}, zoom1920[4] = {1920, 0, 0, 0};
    const int32_t object[4] = {15, 10, -200, 120}, atSpeed[4] = {7, 3, -200, 120}, home[4] = {15, 10, 0, 0};
    const int32_t drive[4] = {5, 6, 1, 3}, zoomDrive[4] = {4, 2, 0, 0};
    const std::vector<Bytes> expected = {encoded(0, zoom960), encoded(1, object),     encoded(0, zoom960),
                                         encoded(1, atSpeed), encoded(0, zoom0),      encoded(1, home),
                                         encoded(4, drive),   encoded(18, zoomDrive), encoded(0, zoom1920)};
    EXPECT_EQ(camera.packets(), expected);
}

TEST_F(FeatureLink, InquiriesTakeTheCameraAnswer) {
    FakeCamera camera(feature_path(), [](const Bytes &packet) {
        if (packet == Bytes{0x81, 0x09, 0x04, 0x47, 0xFF}) {
            return Bytes{0x90, 0x50, 0x00, 0x07, 0x08, 0x00, 0xFF};
        }
        if (packet == Bytes{0x81, 0x09, 0x0A, 0x00, 0xFF}) {
            return Bytes{0x90, 0x50, 0x0A, 0x2A, 0xFF};
        }
        return Bytes{0x90, 0x60, 0x02, 0xFF};
    });
    OutputCapture out;
    g_zoomPosition = 0;
    EXPECT_EQ(visca_inquire_zoom(), 0);
    EXPECT_EQ(g_zoomPosition.load(), 1920);
    EXPECT_EQ(visca_inquire_12(), 0x2A);
    std::string text = out.finish();
    EXPECT_NE(text.find(kTrace + "7 zoom \n"), std::string::npos) << text;
    EXPECT_NE(text.find(kTrace + "5 \n"), std::string::npos) << text;
}

TEST_F(FeatureLink, InquiriesGiveUpAfterHalfASecondOfSilence) {
    unlink(feature_path().c_str());  // no camera process at all
    g_receiveData[0] = 77;
    OutputCapture out;
    OutputCapture err(2);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(visca_inquire_zoom(), 1);
    auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(visca_inquire_12(), 0);
    std::string errors = err.finish();
    std::string text = out.finish();
    EXPECT_GE(waited, 450ms);
    EXPECT_LT(waited, 10s);
    EXPECT_EQ(g_zoomPosition.load(), 77);  // whatever the slot held
    EXPECT_EQ(count_of(text, "ret == -1\nfeatureCamera_addr.sun_family == 1\n"), 2u) << text;
    EXPECT_EQ(count_of(errors, "sendto: "), 2u) << errors;

    // A camera that is there but does not answer costs the same half second.
    FakeCamera silent(feature_path(), [](const Bytes &) { return Bytes(); });
    OutputCapture quiet;
    start = std::chrono::steady_clock::now();
    EXPECT_EQ(visca_inquire_zoom(), 1);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 450ms);
    quiet.finish();
}

TEST_F(FeatureLink, StopRequestClosesTheEndpointAndItCanStartAgain) {
    OutputCapture out;
    stop_feature_endpoint();
    out.finish();
    EXPECT_EQ(net_state().featureFd.load(), 0);
    EXPECT_EQ(net_state().featureStopRequest.load(), 0);
    std::string trace = read_file(ipc_runtime_dir() + "/qmt_autoframe.log");
    EXPECT_NE(
        trace.find(" src/net_communication +1060 udp_rx_featureVISCA_main] close feature udp rx thread!\n"),
        std::string::npos)
        << trace;

    ASSERT_EQ(featureCamera_udp_init(), 0);
    FakeCamera camera(feature_path(),
                      [](const Bytes &) { return Bytes{0x90, 0x50, 0x00, 0x03, 0x0C, 0x00, 0xFF}; });
    OutputCapture again;
    EXPECT_EQ(visca_inquire_zoom(), 0);
    again.finish();
    EXPECT_EQ(g_zoomPosition.load(), 0x3C0);
}

TEST_F(FeatureLink, JunkOnTheSocketNeverStopsTheReceiver) {
    FakeCamera camera(feature_path(), [](const Bytes &) { return Bytes(); });
    // The daemon's socket has an abstract name of the kernel's choosing.
    sockaddr_un daemon;
    socklen_t daemonLength = sizeof daemon;
    ASSERT_EQ(getsockname(net_state().featureFd, reinterpret_cast<sockaddr *>(&daemon), &daemonLength), 0);
    ASSERT_GT(daemonLength, sizeof(sa_family_t));
    EXPECT_EQ(daemon.sun_path[0], '\0');

    int junk = socket(AF_UNIX, SOCK_DGRAM, 0);
    auto send_junk = [&](const Bytes &bytes) {
        return sendto(junk, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&daemon),
                      daemonLength);
    };
    std::mt19937 random(20240611);
    OutputCapture out;
    for (const Bytes &edge : {Bytes{}, Bytes(256, 0x50), Bytes(1000, 0x90)}) {
        EXPECT_EQ(send_junk(edge), static_cast<ssize_t>(edge.size()));
    }
    for (int i = 0; i < 60; ++i) {
        Bytes bytes(random() % 300);
        for (auto &b : bytes) {
            b = static_cast<uint8_t>(random());
        }
        EXPECT_EQ(send_junk(bytes), static_cast<ssize_t>(bytes.size()));
    }
    // The receiver takes one datagram per 10 ms; a datagram counts against its
    // sender until the receiver has taken it.
    ASSERT_TRUE(eventually([&] { return unsent_bytes(junk) == 0; }, 30s));
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(net_state().featureRxRunning.load(), 1);

    // Still decoding, and junk from an unnamed sender did not move the destination.
    g_receiveFlag = 0;
    send_junk({0x90, 0x50, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x02, 0xFF});
    ASSERT_TRUE(eventually([] { return g_receiveFlag.load() == 1; }));
    EXPECT_EQ(g_receiveData[0].load(), 1);
    EXPECT_EQ(g_receiveData[1].load(), 2);
    send_command(0, kViscaPanTiltInquiry, nullptr);
    out.finish();
    EXPECT_TRUE(eventually([&] { return camera.packets().size() == 1; }));
    close(junk);
}
