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

TEST_F(TrackMap, PeerHoldingTheLockCostsThreeMillisecondsAndACounterLine) {
    ASSERT_NE(shm_track_map_open(), nullptr);
    int locked[2], release[2];
    ASSERT_EQ(pipe(locked), 0);
    ASSERT_EQ(pipe(release), 0);
    fflush(nullptr);
    const pid_t peer = fork();
    ASSERT_GE(peer, 0);
    if (peer == 0) {
        // The peer process: takes the lock in its inherited attachment and
        // holds it until told to let go.
        timespec far;
        clock_gettime(CLOCK_REALTIME, &far);
        far.tv_sec += 60;
        char byte = shm_lock_until(&g_msg->mutex, far) == 0 ? 'L' : 'E';
        ssize_t ignored = write(locked[1], &byte, 1);
        ignored = read(release[0], &byte, 1);
        (void)ignored;
        shm_lock_release(&g_msg->mutex);
        _exit(0);
    }
    char state = 0;
    ASSERT_EQ(read(locked[0], &state, 1), 1);
    ASSERT_EQ(state, 'L');

    const ShmTrackStats before = shm_track_map_stats();
    auto data = record(4);
    std::vector<uint8_t> back(kTrackDataBytes);
    OutputCapture out;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(shm_track_map_write(data.data()), 0);
    EXPECT_EQ(shm_track_map_write(data.data()), 0);
    EXPECT_EQ(shm_track_map_read(back.data()), 0);
    EXPECT_EQ(shm_track_map_write(data.data()), 0);
    const auto spent = std::chrono::steady_clock::now() - start;
    const std::string text = out.finish();
    const int w = before.writeFailures, r = before.readFailures;
    EXPECT_EQ(text, kAts + std::to_string(w + 1) + "\n" + kAts + std::to_string(w + 2) + "\n" + kAts +
                        std::to_string(r + 1) + "\n" + kAts + std::to_string(w + 3) + "\n");
    EXPECT_LT(spent, 2s);  // four waits of 3 ms, with room for a slow machine
    EXPECT_EQ(shm_track_map_stats().writeFailures, w + 3);
    EXPECT_EQ(shm_track_map_stats().readFailures, r + 1);

    ASSERT_EQ(write(release[1], "x", 1), 1);
    int status = 0;
    ASSERT_EQ(waitpid(peer, &status, 0), peer);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(shm_track_map_write(data.data()), 1);
    for (int fd : {locked[0], locked[1], release[0], release[1]}) {
        close(fd);
    }
}

TEST_F(TrackMap, OpenWithoutCreatingNeedsTheSegmentAndFailuresAreNamed) {
    OutputCapture out;
    EXPECT_EQ(creat_track_share_map(), nullptr);
    EXPECT_EQ(out.finish(), "enter creat_track_share_map\nenter shmget\nfail to shmget");
    EXPECT_EQ(g_frameSize, 1212);

    ASSERT_NE(shm_track_map_open(), nullptr);
    ASSERT_EQ(shm_track_map_detach(), 0);
    PeerView peer;
    peer->written = 3;
    OutputCapture again;
    void *address = creat_track_share_map();
    ASSERT_NE(address, nullptr);
    EXPECT_EQ(again.finish(), "enter creat_track_share_map\nenter shmget\n");
    EXPECT_EQ(g_msg->written, 3);          // opened, not initialised
    EXPECT_EQ(shm_track_map_remove(), 0);  // gone once the last attachment goes
    EXPECT_EQ(shm_track_map_detach(), 0);
    EXPECT_LT(shmget(ipc_shm_key(), 0, 0), 0);

    // A segment of another size under the key: shmget refuses it, and every failure is named.
    const int other = shmget(ipc_shm_key(), 64, IPC_CREAT | 0666);
    ASSERT_GE(other, 0);
    OutputCapture failures;
    EXPECT_EQ(shm_track_map_open(), nullptr);
    EXPECT_EQ(shm_track_map_detach(), -1);
    EXPECT_EQ(shm_track_map_remove(), -1);
    auto data = record(1);
    EXPECT_EQ(shm_track_map_write(data.data()), 0);  // without the segment: nothing, silently
    EXPECT_EQ(failures.finish(), "fail to shmget\nfailed to shmdt\nfailed to shmctl\n");
    shmctl(other, IPC_RMID, nullptr);
}

TEST_F(TrackMap, ExerciseWritesCountedRecords) {
    OutputCapture out;
    shm_track_map_test(2);
    EXPECT_EQ(out.finish(), "send data ok!!!\ncount:0\nsend data ok!!!\ncount:1\n");
    PeerView peer;
    ASSERT_TRUE(peer.attached());
    float floats[8];
    memcpy(floats, peer->data, sizeof floats);
    for (float f : floats) {
        EXPECT_EQ(f, 1.0f);
    }
    int32_t word27;
    memcpy(&word27, peer->data + 27 * 4, sizeof word27);
    EXPECT_EQ(word27, 1);
    EXPECT_EQ(peer->written, 1);
}
