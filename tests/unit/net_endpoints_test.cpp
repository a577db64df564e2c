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
