// The shared-memory track map: the deadline arithmetic, the segment's life,
// and the 3 ms lock against a peer process that holds it.
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "faceDet/runtime_env.h"
#include "ipc_test_env.h"
#include "output_capture.h"
#include "share_memory/share_memory.h"
#include "share_memory/shm_lock.h"

using namespace std::chrono_literals;

namespace {

const std::string kAts = "@@@@@@@@@@@@@@@@@@@@@@@@@@@@";

// The segment as the peer process sees it: its own attachment.
class PeerView {
  public:
    PeerView() {
        id_ = shmget(ipc_shm_key(), kTrackMapBytes, 0666);
        map_ = id_ < 0 ? nullptr : static_cast<TrackShareMap *>(shmat(id_, nullptr, 0));
    }
    ~PeerView() {
        if (map_) {
            shmdt(map_);
        }
    }
    TrackShareMap *operator->() const { return map_; }
    bool attached() const { return map_ != nullptr; }
    int id() const { return id_; }

  private:
    int id_ = -1;
    TrackShareMap *map_ = nullptr;
};

class TrackMap : public ::testing::Test {
  protected:
    void SetUp() override {
        ipc_runtime_dir();
        ASSERT_EQ(shm_key(), ipc_shm_key());
        ipc_remove_segment();
    }
    void TearDown() override {
        if (g_msg != nullptr) {
            shm_track_map_detach();
        }
        ipc_remove_segment();
    }

    static std::vector<uint8_t> record(uint8_t seed) {
        std::vector<uint8_t> bytes(kTrackDataBytes);
        for (int i = 0; i < kTrackDataBytes; ++i) {
            bytes[i] = static_cast<uint8_t>(seed + i * 7);
        }
        return bytes;
    }
};

}  // namespace

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

TEST_F(TrackMap, OpenWriteReadAsThePeerSeesIt) {
    OutputCapture out;
    void *address = shm_track_map_open();
    ASSERT_NE(address, nullptr);
    EXPECT_EQ(static_cast<void *>(g_msg), address);
    PeerView peer;
    ASSERT_TRUE(peer.attached());
    EXPECT_EQ(peer->written, 0);
    EXPECT_EQ(peer->dataSize, 1180);

    auto data = record(3);
    EXPECT_EQ(shm_track_map_write(data.data()), 1);
    EXPECT_EQ(peer->written, 1);
    EXPECT_EQ(memcmp(peer->data, data.data(), kTrackDataBytes), 0);

    // The peer answers in the data area; reading leaves the flag alone.
    peer->written = 5;
    memset(peer->data, 0x5A, kTrackDataBytes);
    std::vector<uint8_t> back(kTrackDataBytes);
    EXPECT_EQ(shm_track_map_read(back.data()), 1);
    EXPECT_EQ(back, std::vector<uint8_t>(kTrackDataBytes, 0x5A));
    EXPECT_EQ(peer->written, 5);

    EXPECT_EQ(shm_track_map_detach(), 0);
    EXPECT_EQ(shm_track_map_write(data.data()), 0);  // nothing attached any more
    EXPECT_EQ(out.finish(), "");
}

TEST_F(TrackMap, SegmentOfAnEarlierRunIsReusedAndReinitialised) {
    const int earlier = shmget(ipc_shm_key(), kTrackMapBytes, IPC_CREAT | 0666);
    ASSERT_GE(earlier, 0);
    {
        PeerView leftover;
        ASSERT_TRUE(leftover.attached());
        // A lock word and flag as a crashed peer might leave them.
        memset(leftover.operator->(), 0xAB, kTrackMapBytes);
    }
    ASSERT_NE(shm_track_map_open(), nullptr);
    PeerView peer;
    EXPECT_EQ(peer.id(), earlier);
    EXPECT_EQ(peer->written, 0);
    EXPECT_EQ(peer->dataSize, 1180);
    EXPECT_EQ(peer->data[0], 0xAB);  // the data area is not touched
    auto data = record(9);
    EXPECT_EQ(shm_track_map_write(data.data()), 1);  // the lock works again
    EXPECT_EQ(peer->written, 1);
}
