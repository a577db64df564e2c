// The control endpoint through a real socket and its real receive thread, the
// runtime paths, and the loopback senders.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "ipc_test_env.h"
#include "net_communication/net_communication.h"
#include "net_communication/net_state.h"
#include "output_capture.h"
#include "temp_dir.h"

using namespace std::chrono_literals;
using Bytes = std::vector<uint8_t>;

namespace {

// How the control endpoint came up in this process. It is created once: first
// against a folder in the way of its path (bind fails), then over a plain file
// left at its path (replaced).
struct ControlStart {
    int blockedResult = 0;
    std::string blockedErrors;
    uint8_t msgBufAfterFailure[2] = {0, 0};
    int leftoverResult = -1;
    bool pathIsSocket = false;
};

const ControlStart &control_endpoint() {
    static const ControlStart start = [] {
        ControlStart s;
        ipc_runtime_dir();
        net_paths_init();
        mkdir(sin_path, 0755);
        OutputCapture err(2);
        s.blockedResult = detect_camera_udp_init();
        s.blockedErrors = err.finish();
        s.msgBufAfterFailure[0] = MsgBuf[0];
        s.msgBufAfterFailure[1] = MsgBuf[1];
        rmdir(sin_path);

        write_file(sin_path, "left over from an earlier run");
        s.leftoverResult = detect_camera_udp_init();
        struct stat st;
        s.pathIsSocket = stat(sin_path, &st) == 0 && S_ISSOCK(st.st_mode);
        return s;
    }();
    return start;
}

class ControlEndpoint : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(control_endpoint().leftoverResult, 0);
        client_ = socket(AF_UNIX, SOCK_DGRAM, 0);
        ASSERT_GE(client_, 0);
    }
    void TearDown() override { close(client_); }

    void send(const Bytes &bytes) {
        sockaddr_un to;
        memset(&to, 0, sizeof to);
        to.sun_family = AF_UNIX;
        snprintf(to.sun_path, sizeof to.sun_path, "%s", sin_path);
        ASSERT_EQ(sendto(client_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&to),
                         sizeof to),
                  static_cast<ssize_t>(bytes.size()));
    }

    // Sends, then waits until MsgBuf shows the expected bytes.
    void expect_msg_buf_after(const Bytes &bytes, uint8_t first, uint8_t second) {
        send(bytes);
        EXPECT_TRUE(eventually([&] { return MsgBuf[0] == first && MsgBuf[1] == second; }))
            << "MsgBuf is {" << int(MsgBuf[0]) << ", " << int(MsgBuf[1]) << "} after " << bytes.size()
            << " bytes";
    }

    // Resets MsgBuf to {1, 0} through the socket, so the next change is visible.
    void reset() { expect_msg_buf_after({0x01, 0x00}, 1, 0); }

    int client_ = -1;
};

}  // namespace

TEST(ControlEndpointStart, BlockedPathFailsLeftoverFileIsReplacedPathsInTheRuntimeFolder) {
    const ControlStart &start = control_endpoint();
    EXPECT_EQ(start.blockedResult, -1);
    EXPECT_EQ(start.blockedErrors.rfind("bind: ", 0), 0u) << start.blockedErrors;
    EXPECT_EQ(start.msgBufAfterFailure[0] * 256 + start.msgBufAfterFailure[1], 0x100);
    EXPECT_EQ(start.leftoverResult, 0);
    EXPECT_TRUE(start.pathIsSocket);
    const std::string dir = ipc_runtime_dir();
    EXPECT_EQ(std::string(sin_path), dir + "/sin_addr.socket");
    EXPECT_EQ(std::string(itself_path), dir + "/itself_addr.socket");
    EXPECT_EQ(std::string(featureCamera_path), dir + "/featureCamera_addr.socket");
}

TEST_F(ControlEndpoint, EachDatagramSetsBothBytesFromItsFirstTwo) {
    reset();
    OutputCapture out;
    expect_msg_buf_after({0x01, 0x01}, 1, 1);
    std::this_thread::sleep_for(300ms);  // the thread prints right after the copy
    const std::string text = out.finish();
    EXPECT_NE(text.find("MsgBuf[0]= 1, MsgBuf[1]= 1 \n"), std::string::npos) << text;
    const std::pair<Bytes, std::pair<int, int>> steps[] = {
        {{0x01, 0x02}, {1, 2}}, {{0xAB, 0xCD}, {0xAB, 0xCD}},
        {{0x07}, {7, 0}},                      // one byte clears the second
        {{0x01, 0x01}, {1, 1}}, {{}, {0, 0}},  // empty: both zero
        {{0x01, 0x01}, {1, 1}},                // and the thread goes on
    };
    for (const auto &[bytes, expected] : steps) {
        expect_msg_buf_after(bytes, static_cast<uint8_t>(expected.first),
                             static_cast<uint8_t>(expected.second));
    }
}

TEST_F(ControlEndpoint, LongAndRandomDatagramsUseOnlyTheFirstTwoBytes) {
    OutputCapture out;
    Bytes longOne(128, 0x55);
    longOne[0] = 0x01;
    longOne[1] = 0x02;
    expect_msg_buf_after(longOne, 1, 2);
    reset();
    Bytes tooLong(4000, 0x66);  // cut by the kernel to the 128-byte buffer
    tooLong[0] = 0x01;
    tooLong[1] = 0x01;
    expect_msg_buf_after(tooLong, 1, 1);

    // Whatever came before, the last datagram is the one that counts.
    expect_msg_buf_after({0x01, 0x02}, 1, 2);
    out.finish();
    EXPECT_NE(net_state().controlFd.load(), 0);
}

TEST_F(ControlEndpoint, SendToItselfNeedsAReceiverAtItsPath) {
    const uint8_t bytes[] = {1, 2};
    OutputCapture err(2);
    EXPECT_EQ(send_to_itself(bytes, 2), -1);  // nothing listens at itself_path
    err.finish();
    // A receiver there gets the datagram from the control endpoint's address.
    int receiver = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un at;
    memset(&at, 0, sizeof at);
    at.sun_family = AF_UNIX;
    snprintf(at.sun_path, sizeof at.sun_path, "%s", itself_path);
    unlink(itself_path);
    ASSERT_EQ(bind(receiver, reinterpret_cast<const sockaddr *>(&at), sizeof at), 0);
    EXPECT_EQ(send_to_itself(bytes, 2), 0);
    uint8_t got[4] = {};
    sockaddr_un from;
    socklen_t fromLength = sizeof from;
    EXPECT_EQ(recvfrom(receiver, got, sizeof got, 0, reinterpret_cast<sockaddr *>(&from), &fromLength), 2);
    EXPECT_EQ(got[1], 2);
    EXPECT_EQ(std::string(from.sun_path), std::string(sin_path));
    close(receiver);
    unlink(itself_path);
}

TEST(LoopbackSenders, UdpSendsReportTheirLengths) {
    const uint8_t bytes[] = {0x81, 0x01, 0xFF};
    EXPECT_EQ(send_udp_1259(bytes, 3), 0);
    OutputCapture out;
    EXPECT_EQ(send_aw_af(bytes, 3), 0);
    EXPECT_EQ(out.finish(), "send aw length = 3\nsend af length = 3\n");
}
