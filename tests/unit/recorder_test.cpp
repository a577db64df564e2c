// The flight recorder's plain parts: its settings, which datagrams it keeps,
// its lines about dropped records, and the queue the daemon's threads fill.
#include <arpa/inet.h>
#include <netinet/in.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "drop_report.h"
#include "event_queue.h"
#include "recorder_settings.h"

namespace {

using namespace recorder;

sockaddr_un unix_address(const char *path) {
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    snprintf(a.sun_path, sizeof a.sun_path, "%s", path);
    return a;
}

sockaddr_in udp(const char *ip, uint16_t port) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    inet_pton(AF_INET, ip, &a.sin_addr);
    return a;
}

const sockaddr *any(const void *a) {
    return static_cast<const sockaddr *>(a);
}

TEST(RecorderSettings, ReadsTheFolderTheLimitAndTheDaemonsSocketPaths) {
    Settings s;
    char why[200] = "";
    ASSERT_TRUE(settings_from("/rec", nullptr, nullptr, &s, why, sizeof why));
    EXPECT_EQ(s.maxBytes, 256ull << 20);
    EXPECT_STREQ(s.cameraPath, "/dev/featureCamera_addr.socket");
    EXPECT_STREQ(s.controlPath, "/dev/sin_addr.socket");
    ASSERT_TRUE(settings_from("/rec", "3", "/tmp/rt", &s, why, sizeof why));
    EXPECT_EQ(s.maxBytes, 3ull << 20);
    EXPECT_STREQ(s.controlPath, "/tmp/rt/sin_addr.socket");
    for (const char *bad : {"0", "-1", " 5", "5M", "x", "99999999999999"}) {
        EXPECT_FALSE(settings_from("/rec", bad, nullptr, &s, why, sizeof why)) << bad;
        EXPECT_EQ(std::string(why),
                  "FACEDET_RECORD_MAX_MB='" + std::string(bad) + "' is not a whole number of MiB from 1 up");
    }
    EXPECT_FALSE(settings_from("", nullptr, nullptr, &s, why, sizeof why));
}

TEST(RecorderSettings, KeepsTheDaemonsDatagramsByTheirAddresses) {
    Settings s;
    char why[200];
    ASSERT_TRUE(settings_from("/rec", nullptr, "/rt", &s, why, sizeof why));
    const sockaddr_un camera = unix_address("/rt/featureCamera_addr.socket");
    const sockaddr_un control = unix_address("/rt/sin_addr.socket");
    const sockaddr_un other = unix_address("/rt/featureCamera_addr.sock");
    const sockaddr_in port = udp("127.0.0.1", 1259);
    EXPECT_EQ(destination_of(s, any(&camera), sizeof camera), Peer::Camera);
    EXPECT_EQ(destination_of(s, any(&other), sizeof other), Peer::None);
    EXPECT_EQ(destination_of(s, any(&control), sizeof control), Peer::None);
    EXPECT_EQ(destination_of(s, any(&port), sizeof port), Peer::Udp1259);
    const sockaddr_in elsewhere[] = {udp("127.0.0.1", 1260), udp("10.0.0.1", 1259)};
    for (const sockaddr_in &a : elsewhere) {
        EXPECT_EQ(destination_of(s, any(&a), sizeof a), Peer::None);
    }
    EXPECT_EQ(destination_of(s, nullptr, 0), Peer::None);
    // Length as the kernel gives it: only the path's bytes, no terminating zero.
    EXPECT_EQ(destination_of(s, any(&camera), offsetof(sockaddr_un, sun_path) + strlen(camera.sun_path)),
              Peer::Camera);
    // Received: on the control socket it is a control datagram whoever sent it.
    const sockaddr_un unnamed = unix_address("");
    EXPECT_EQ(received_from(s, any(&control), sizeof control, any(&camera), sizeof camera), Peer::Control);
    EXPECT_EQ(received_from(s, any(&unnamed), sizeof(sa_family_t), any(&camera), sizeof camera),
              Peer::Camera);
    EXPECT_EQ(received_from(s, any(&unnamed), sizeof(sa_family_t), any(&other), sizeof other), Peer::None);
}

TEST(DropReport, SaysOneLineAtTheStartAndOneAtTheEndOfEachRun) {
    DropReport report;
    char line[200];
    EXPECT_FALSE(report.written(line, sizeof line));
    ASSERT_TRUE(report.dropped(0, "the writer is behind", line, sizeof line));
    EXPECT_STREQ(line, "faceDet recorder: dropping records: the writer is behind\n");
    EXPECT_FALSE(report.dropped(3, "the writer is behind", line, sizeof line));
    EXPECT_FALSE(report.dropped(2, "No space left on device", line, sizeof line));
    ASSERT_TRUE(report.written(line, sizeof line));
    EXPECT_STREQ(line, "faceDet recorder: recording again after dropping 5 records\n");
    EXPECT_FALSE(report.written(line, sizeof line));
    EXPECT_FALSE(report.finish(line, sizeof line));
    ASSERT_TRUE(report.dropped(4, "FACEDET_RECORD_MAX_MB=1 reached", line, sizeof line));
    ASSERT_TRUE(report.finish(line, sizeof line));
    EXPECT_STREQ(line, "faceDet recorder: 4 records dropped until the end\n");
    EXPECT_EQ(report.total(), 9u);
}

// Three threads fill a small queue while one empties it: each thread's events
// come out whole and in its order; those that found it full say so.
TEST(EventQueue, HandsOverEveryQueuedEventInOrderAndRefusesWhenFull) {
    struct Item {
        int thread, n;
    };
    EventQueue<Item, 8> queue;
    constexpr int kThreads = 3, kEach = 20000;
    std::vector<int> refused(kThreads, 0), next(kThreads, 0);
    std::atomic<int> finished{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int n = 0; n < kEach; ++n) {
                if (!queue.push([&](Item &item) { item = {t, n}; })) {
                    ++refused[t];
                }
            }
            ++finished;
        });
    }
    int taken = 0, wrongOrder = 0;
    auto take = [&](Item &item) {
        wrongOrder += item.n < next[item.thread];
        next[item.thread] = item.n + 1;
        ++taken;
    };
    while (finished < kThreads) {
        queue.pop(take);
    }
    for (auto &thread : threads) {
        thread.join();
    }
    while (queue.pop(take)) {
    }
    EXPECT_EQ(wrongOrder, 0);
    EXPECT_EQ(taken + refused[0] + refused[1] + refused[2], kThreads * kEach);
    for (int n = 0; n < 8; ++n) {
        EXPECT_TRUE(queue.push([&](Item &item) { item = {0, n}; }));
    }
    EXPECT_FALSE(queue.push([](Item &) { ADD_FAILURE() << "filled a cell of a full queue"; }));

    SlotPool<3> slots;
    std::vector<int> got = {slots.take(), slots.take(), slots.take(), slots.take()};
    EXPECT_EQ(got, (std::vector<int>{0, 1, 2, -1}));
    slots.give(1);
    EXPECT_EQ(slots.take(), 1);
}

}  // namespace
