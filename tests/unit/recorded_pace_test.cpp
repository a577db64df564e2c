// The recorded pace: a flight recording's frames handed over one at a time
// with the camera's times, and each control datagram delivered to the
// daemon's control socket, and taken, before the frame it preceded.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "host_config.h"
#include "host_platform.h"
#include "mi_sys.h"
#include "mi_vpe.h"
#include "recording_builder.h"
#include "temp_dir.h"

namespace {

using recording::Kind;
using Bytes = std::vector<uint8_t>;

constexpr int kW = 416, kH = 234;
MI_SYS_ChnPort_t kPort = {E_MI_MODULE_ID_VPE, 0, 0, 1};

// The daemon's control socket: what arrived, and how many frames had been
// handed out by then.
class ControlSocket {
  public:
    explicit ControlSocket(const std::string &path) {
        fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un own{};
        own.sun_family = AF_UNIX;
        path.copy(own.sun_path, sizeof own.sun_path - 1);
        bound_ = bind(fd_, reinterpret_cast<const sockaddr *>(&own), sizeof own) == 0;
        thread_ = std::thread([this] {
            while (!stop_) {
                pollfd p{fd_, POLLIN, 0};
                if (poll(&p, 1, 20) != 1) {
                    continue;
                }
                // As a busy control thread: a while passes before it receives.
                usleep(20000);
                Bytes datagram(16);
                const ssize_t n = recv(fd_, datagram.data(), datagram.size(), 0);
                datagram.resize(n > 0 ? static_cast<size_t>(n) : 0);
                std::lock_guard<std::mutex> lock(mu_);
                got_.push_back({datagram, handedOut.load()});
            }
        });
    }
    ~ControlSocket() {
        stop_ = true;
        thread_.join();
        close(fd_);
    }
    bool bound() const { return bound_; }
    std::vector<std::pair<Bytes, int>> got() {
        std::lock_guard<std::mutex> lock(mu_);
        return got_;
    }
    std::atomic<int> handedOut{0};

  private:
    int fd_ = -1;
    bool bound_ = false;
    std::atomic<bool> stop_{false};
    std::thread thread_;
    std::mutex mu_;
    std::vector<std::pair<Bytes, int>> got_;
};

TEST(RecordedPace, HandsOutEveryFrameAtItsTimeAfterTheControlsThatPrecededIt) {
    TempDir dir;
    RecordingBuilder()
        .frame(0, {}, 1)
        .datagram(Kind::Control, 10000, {1, 1})
        .datagram(Kind::CameraPacket, 20000, {0x81, 0x01, 0x04, 0x47, 0, 0, 0, 0, 0xff})
        .frame(200000, {}, 2)
        .datagram(Kind::Control, 300000, {1, 0})
        .datagram(Kind::Control, 310000, {1, 2})
        .frame(450000, {}, 3)
        .end()
        .write(dir.file("rec"));
    ControlSocket control(dir.file("sin_addr.socket"));
    ASSERT_TRUE(control.bound());

    host::Config cfg;
    cfg.source = dir.file("rec");
    cfg.pace = host::Pace::Recorded;
    cfg.controlPath = dir.file("sin_addr.socket");
    host::use_config_for_next_init(cfg);
    ASSERT_EQ(MI_SYS_Init(), MI_SUCCESS);
    MI_VPE_PortMode_t mode{kW, kH, E_MI_SYS_PIXEL_FRAME_YUV_SEMIPLANAR_420, E_MI_SYS_COMPRESS_MODE_NONE};
    ASSERT_EQ(MI_VPE_SetPortMode(0, 1, &mode), MI_SUCCESS);
    ASSERT_EQ(MI_SYS_SetChnOutputPortDepth(&kPort, 1, 2), MI_SUCCESS);
    ASSERT_EQ(MI_VPE_EnablePort(0, 1), MI_SUCCESS);
    int fd = -1;
    ASSERT_EQ(MI_SYS_GetFd(&kPort, &fd), MI_SUCCESS);
    const MI_U64 times[] = {0, 200000, 450000};
    for (int k = 0; k < 3; ++k) {
        pollfd p{fd, POLLIN, 0};
        ASSERT_EQ(poll(&p, 1, 5000), 1) << k;
        MI_SYS_BufInfo_t info;
        MI_SYS_BUF_HANDLE h = 0;
        ASSERT_EQ(MI_SYS_ChnOutputPortGetBuf(&kPort, &info, &h), MI_SUCCESS);
        control.handedOut = k + 1;
        EXPECT_EQ(static_cast<const uint8_t *>(info.stFrameData.pVirAddr[0])[kW * kH - 1], k + 1);
        EXPECT_EQ(info.u64Pts, times[k]) << "the camera's time of the take";
        ASSERT_EQ(MI_SYS_ChnOutputPortPutBuf(h), MI_SUCCESS);
    }
    EXPECT_EQ(MI_SYS_CloseFd(fd), MI_SUCCESS);
    EXPECT_EQ(MI_SYS_Exit(), MI_SUCCESS);
    // Each came, and was taken, before its frame was handed out; packets are not delivered.
    EXPECT_EQ(control.got(), (std::vector<std::pair<Bytes, int>>{{{1, 1}, 1}, {{1, 0}, 2}, {{1, 2}, 2}}));
}

TEST(RecordedPace, IsARecordingsDefaultAndNoOtherSourcesPace) {
    TempDir dir;
    RecordingBuilder().frame(0, {}).write(dir.file("rec"));
    write_file(dir.file("clip.nv12"), std::string(kW * kH * 3 / 2, 'x'));
    struct Row {
        const char *source, *pace;
        bool ok;
        host::Pace expected;
    } rows[] = {{"rec", "", true, host::Pace::Recorded},
                {"rec", "lockstep", true, host::Pace::Lockstep},
                {"rec/recording.fdr", "", true, host::Pace::Recorded},
                {"clip.nv12", "", true, host::Pace::Realtime},
                {"clip.nv12", "recorded", false, host::Pace::Realtime}};
    for (const Row &row : rows) {
        setenv("FACEDET_SOURCE", dir.file(row.source).c_str(), 1);
        setenv("FACEDET_PACE", row.pace, 1);
        host::Config cfg;
        std::string error;
        EXPECT_EQ(host::config_from_env(&cfg, &error), row.ok) << row.source << " " << row.pace;
        if (row.ok) {
            EXPECT_EQ(cfg.pace, row.expected) << row.source << " " << row.pace;
        } else {
            EXPECT_EQ(error, "FACEDET_PACE recorded plays a flight recording, and FACEDET_SOURCE is none");
        }
    }
    unsetenv("FACEDET_SOURCE");
    unsetenv("FACEDET_PACE");
}

}  // namespace
