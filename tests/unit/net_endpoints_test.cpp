// The control endpoint through a real socket and its real receive thread: its
// start against a blocked path and over a leftover file, the runtime paths,
// and the two bytes each datagram sets.
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

TEST(ControlEndpoint, StartsOverALeftoverFileInTheRuntimeFolderAndEachDatagramSetsBothBytes) {
    const std::string dir = ipc_runtime_dir();
    net_paths_init();
    EXPECT_EQ(std::string(sin_path) + itself_path + featureCamera_path,
              dir + "/sin_addr.socket" + dir + "/itself_addr.socket" + dir + "/featureCamera_addr.socket");
    // A folder in the way: bind fails, and MsgBuf keeps its start value.
    mkdir(sin_path, 0755);
    OutputCapture err(2);
    EXPECT_EQ(detect_camera_udp_init(), -1);
    EXPECT_EQ(err.finish().rfind("bind: ", 0), 0u);
    EXPECT_EQ(MsgBuf[0] * 256 + MsgBuf[1], 0x100);
    rmdir(sin_path);
    // A plain file left by an earlier run is replaced.
    write_file(sin_path, "left over from an earlier run");
    ASSERT_EQ(detect_camera_udp_init(), 0);
    struct stat st;
    EXPECT_TRUE(stat(sin_path, &st) == 0 && S_ISSOCK(st.st_mode));

    const int client = socket(AF_UNIX, SOCK_DGRAM, 0);
    ASSERT_GE(client, 0);
    sockaddr_un to;
    memset(&to, 0, sizeof to);
    to.sun_family = AF_UNIX;
    snprintf(to.sun_path, sizeof to.sun_path, "%s", sin_path);
    OutputCapture out;
    const std::pair<std::vector<uint8_t>, int> steps[] = {
        {{0x01, 0x00}, 0x100}, {{0x01, 0x01}, 0x101},
        {{0x01, 0x02}, 0x102}, {{0xAB, 0xCD}, 0xABCD},
        {{0x07}, 0x700},                 // one byte clears the second
        {{0x01, 0x01}, 0x101}, {{}, 0},  // empty: both zero
        {{0x01, 0x01}, 0x101},           // and the thread goes on
    };
    for (const auto &[bytes, expected] : steps) {
        ASSERT_EQ(
            sendto(client, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&to), sizeof to),
            static_cast<ssize_t>(bytes.size()));
        EXPECT_TRUE(eventually([&, e = expected] { return MsgBuf[0] * 256 + MsgBuf[1] == e; }))
            << "MsgBuf is {" << int(MsgBuf[0]) << ", " << int(MsgBuf[1]) << "} after " << bytes.size()
            << " bytes";
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // the thread prints right after the copy
    const std::string text = out.finish();
    EXPECT_NE(text.find("MsgBuf[0]= 1, MsgBuf[1]= 1 \n"), std::string::npos) << text;
    close(client);
}
