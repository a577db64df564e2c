// The daemon's channels to its peers, as the peers see them. The shared-memory
// track map: the key setting, the lock's deadline arithmetic, and the segment
// through the peer's own attachment. The control endpoint through a real socket
// and its real receive thread: its start against a blocked path and over a
// leftover file, the runtime paths, and the two bytes each datagram sets.
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "dbgout/runtime_env.h"
#include "ipc_test_env.h"
#include "net_communication/net_communication.h"
#include "net_communication/net_state.h"
#include "output_capture.h"
#include "share_memory/share_memory.h"
#include "share_memory/shm_lock.h"
#include "temp_dir.h"

TEST(ShmKey, ParsesDecimalAndHexOnly) {
    const std::pair<const char *, key_t> good[] = {
        {"0x1123", 0x1123}, {"4387", 4387}, {"0X7fff0001", 0x7fff0001}, {"010", 10}};  // decimal, not octal
    for (const auto &[text, expected] : good) {
        key_t key = 0;
        EXPECT_TRUE(parse_shm_key(text, &key)) << text;
        EXPECT_EQ(key, expected) << text;
    }
    key_t key = 77;
    for (const char *bad :
         {"", "abc", "0x", "12z", " 12", "0x1g", "99999999999", static_cast<const char *>(nullptr)}) {
        EXPECT_FALSE(parse_shm_key(bad, &key)) << (bad ? bad : "null");
    }
    EXPECT_EQ(key, 77);
}

TEST(TrackMapDeadline, AddsThreeMillisecondsAndCarries) {
    // The carry subtracts 997000000 from the nanoseconds as read.
    const timespec cases[][2] = {{{5, 0}, {5, 3000000}},
                                 {{5, 996999999}, {5, 999999999}},
                                 {{5, 997000000}, {6, 0}},
                                 {{5, 999999999}, {6, 2999999}},
                                 {{0, 998500000}, {1, 1500000}}};
    for (const auto &c : cases) {
        const timespec d = shm_lock_deadline(c[0]);
        EXPECT_EQ(d.tv_sec * 1000000000L + d.tv_nsec, c[1].tv_sec * 1000000000L + c[1].tv_nsec)
            << c[0].tv_nsec;
    }
}

TEST(TrackMap, SegmentOfAnEarlierRunIsReinitialisedAndCarriesRecordsBothWays) {
    ipc_runtime_dir();
    ASSERT_EQ(shm_key(), ipc_shm_key());
    ipc_remove_segment();
    const int earlier = shmget(ipc_shm_key(), kTrackMapBytes, IPC_CREAT | 0666);
    ASSERT_GE(earlier, 0);
    auto *peer = static_cast<TrackShareMap *>(shmat(earlier, nullptr, 0));
    ASSERT_NE(peer, reinterpret_cast<TrackShareMap *>(-1));
    memset(peer, 0xAB, kTrackMapBytes);  // lock word and flag as a crashed peer might leave them

    OutputCapture out;
    ASSERT_NE(shm_track_map_open(), nullptr);
    EXPECT_EQ(shmget(ipc_shm_key(), kTrackMapBytes, 0666), earlier);
    EXPECT_EQ(peer->written, 0);
    EXPECT_EQ(peer->dataSize, 1180);
    EXPECT_EQ(peer->data[0], 0xAB);  // the data area is not touched

    std::vector<uint8_t> data(kTrackDataBytes), back(kTrackDataBytes);
    for (int i = 0; i < kTrackDataBytes; ++i) {
        data[i] = static_cast<uint8_t>(3 + i * 7);
    }
    EXPECT_EQ(shm_track_map_write(data.data()), 1);  // the lock works again
    EXPECT_EQ(peer->written, 1);
    EXPECT_EQ(memcmp(peer->data, data.data(), kTrackDataBytes), 0);
    // The peer answers in the data area; reading leaves the flag alone.
    peer->written = 5;
    memset(peer->data, 0x5A, kTrackDataBytes);
    EXPECT_EQ(shm_track_map_read(back.data()), 1);
    EXPECT_EQ(back, std::vector<uint8_t>(kTrackDataBytes, 0x5A));
    EXPECT_EQ(peer->written, 5);

    EXPECT_EQ(shm_track_map_detach(), 0);
    EXPECT_EQ(shm_track_map_write(data.data()), 0);  // nothing attached any more
    EXPECT_EQ(out.finish(), "");
    shmdt(peer);
    ipc_remove_segment();
}

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
