// The feature-camera endpoint: VISCA packets to the camera's control process
// and its replies back, on one socket.
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/select.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "dbgout/dbgout.h"
#include "net_communication/net_communication.h"
#include "net_communication/net_state.h"

namespace {

// What a camera process that stops reading costs the frame loop. While the
// camera takes packets, a send waits at most kCameraSendWaitMs for room in its
// queue; once one packet has been dropped, later sends do not wait at all
// until the camera takes one again, so a hung camera costs the loop nothing
// after its first dropped packet.
constexpr int kCameraSendWaitMs = 20;

// Without the limit a send into a full queue would block the frame loop for
// as long as the camera does not read; the socket then never waits at all.
void set_send_time_limit(NetState &state, int fd) {
    struct timeval limit = {0, kCameraSendWaitMs * 1000};
    const bool limited = setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) == 0;
    state.sendsNeverWait = !limited;
    if (!limited) {
        TRACE_AT(kNetTraceSource, __LINE__, "featureCamera_udp_init",
                 "setsockopt(SO_SNDTIMEO): %s; sends to the camera will not wait for room\n",
                 strerror(errno));
    }
}

// Ends the VISCA receive thread after it gave up its socket.
void *close_feature_socket(NetState &state, int fd) {
    close(fd);
    state.featureFd = 0;
    return nullptr;
}

}  // namespace

int camera_udp_init() {
    detect_camera_udp_init();
    featureCamera_udp_init();
    return 0;
}

int featureCamera_udp_init() {
    net_paths_init();
    NetState &state = net_state();
    state.featureFd = 0;
    int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    state.featureFd = fd;
    if (fd < 0) {
        return -1;
    }
    // The socket gets no path. The camera process answers to the sender of each
    // packet, and an unbound local datagram socket has no address it could
    // answer to; binding with the family alone makes the kernel give it a
    // unique abstract name (autobind), which the receiver sees as the sender.
    sockaddr_un unnamed;
    memset(&unnamed, 0, sizeof unnamed);
    unnamed.sun_family = AF_UNIX;
    if (bind(fd, reinterpret_cast<const sockaddr *>(&unnamed), sizeof(sa_family_t)) != 0) {
        // Packets still go out; only the camera's replies have nowhere to come back to.
        TRACE_AT(kNetTraceSource, __LINE__, "featureCamera_udp_init",
                 "bind (autobind): %s; the camera's replies cannot reach this socket\n", strerror(errno));
    }
    set_send_time_limit(state, fd);

    net_set_path(state.featureCameraAddr, featureCamera_path);

    if (state.featureRxRunning) {
        return 0;
    }
    // Marked before the start, so that a thread that ends at once is not
    // marked running after it has gone.
    state.featureRxRunning = 1;
    if (pthread_create(&state.featureThread, nullptr, udp_rx_featureVISCA_main, nullptr) != 0) {
        state.featureRxRunning = 0;
        TRACE_AT(kNetTraceSource, 216, "featureCamera_udp_init",
                 "create udp_rx_panoPTZ_main thread failed!\n\n");
        return -1;
    }
    pthread_detach(state.featureThread);
    return 0;
}

void *udp_rx_featureVISCA_main(void *unused) {
    (void)unused;
    NetState &state = net_state();
    uint8_t buffer[256];
    memset(buffer, 0, sizeof buffer);
    // Armed once: select counts it down, so after its first expiry every
    // later wait is a poll and the pace is set by the 10 ms sleep below.
    struct timeval timeout = {0, 50000};
    prctl(PR_SET_NAME, "udp_rx_featureVISCA_main");

    while (state.featureStopRequest != 1) {
        const int fd = state.featureFd;
        bool readable = false;
        if (net_select_readable(fd, &timeout, &readable) < 0) {
            close_feature_socket(state, fd);
            TRACE_AT(kNetTraceSource, 1073, "udp_rx_featureVISCA_main", "select fail!\n\n");
            state.featureRxRunning = 0;
            return nullptr;
        }

        memset(buffer, 0, sizeof buffer);
        if (readable) {
            // Replies go to whoever answered last (the camera process itself).
            const ssize_t received = net_receive(fd, buffer, sizeof buffer, state.featureCameraAddr);
            if (received == -1) {
                printf("\n\n ---------------udp_rx_featureVISCA_main ----------------- Receive error\n");
                perror("socket");
                state.featureRxRunning = 0;
                return nullptr;
            }
            if (received > static_cast<ssize_t>(sizeof buffer)) {
                printf(
                    "\n\n ---------------udp_rx_featureVISCA_main ----------------- Receive too many "
                    "error\n");
                close_feature_socket(state, fd);
                state.featureRxRunning = 0;
                return nullptr;
            }
            // A full 256-byte datagram counts as 0 here and is ignored as too short.
            if (const CameraReplyHandler handler = state.replyHandler.load()) {
                handler(buffer, static_cast<uint8_t>(received));
            }
        }
        usleep(10000);
    }

    state.featureStopRequest = 0;
    close_feature_socket(state, state.featureFd);
    TRACE_AT(kNetTraceSource, 1060, "udp_rx_featureVISCA_main", "close feature udp rx thread!\n");
    state.featureRxRunning = 0;
    return nullptr;
}

namespace {

// A reply from another socket than the camera's path (a stray sender with an
// abstract or different name) is stored as the destination like any reply;
// when sends to it fail, the next packet goes to the camera's own path again.
bool destination_is_a_stray(const sockaddr_un &destination) {
    return featureCamera_path != nullptr &&
           strncmp(destination.sun_path, featureCamera_path, sizeof destination.sun_path) != 0;
}

// A run of dropped packets is traced at its start and its end, not per packet:
// a camera that stops reading would otherwise flood the trace file.
void note_send_result(NetState &state, const sockaddr_un &destination, ssize_t ret, int error) {
    if (ret >= 0) {
        if (state.cameraDropping.exchange(false)) {
            const unsigned long long dropped = state.cameraDropped.load() - state.cameraDroppedAtStart;
            TRACE_AT(kNetTraceSource, __LINE__, "camera_send", "camera takes packets again, %llu dropped\n",
                     dropped);
        }
        return;
    }
    ++state.cameraDropped;
    if (!state.cameraDropping.exchange(true)) {
        // Counted from the packet that started the run.
        state.cameraDroppedAtStart = state.cameraDropped.load() - 1;
        TRACE_AT(kNetTraceSource, __LINE__, "camera_send",
                 "camera takes no packets (%s), dropping them until it does\n", strerror(error));
    }
    if (destination_is_a_stray(destination)) {
        net_set_path(state.featureCameraAddr, featureCamera_path);
    }
}

}  // namespace

int camera_send(const uint8_t *buffer, int length, int target) {
    net_paths_init();
    NetState &state = net_state();
    if (target == kTargetFeatureCamera) {
        const int fd = state.featureFd;
        if (fd > 0) {
            sockaddr_un destination = net_load_addr(state.featureCameraAddr);
            const int flags = state.cameraDropping || state.sendsNeverWait ? MSG_DONTWAIT : 0;
            ssize_t ret = sendto(fd, buffer, length, flags, reinterpret_cast<const sockaddr *>(&destination),
                                 kUnixAddrLength);
            const int error = errno;
            printf("ret == %d\n", static_cast<int>(ret));
            printf("featureCamera_addr.sun_family == %d\n", destination.sun_family);
            note_send_result(state, destination, ret, error);
            if (ret < 0) {
                errno = error;
                perror("sendto");
                return -1;
            }
        }
        return 0;
    }
    if (target == kTargetUdp1259) {
        send_udp_1259(buffer, length);
        return 0;
    }
    return 0;
}
