// The control endpoint: receives the two control bytes that switch auto framing.
#include <fcntl.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "dbgout/dbgout.h"
#include "net_communication/net_communication.h"
#include "net_communication/net_state.h"

namespace {

void print_msg_buf() {
    printf("MsgBuf[0]= %x, MsgBuf[1]= %x \n", static_cast<unsigned>(MsgBuf[0].load()),
           static_cast<unsigned>(MsgBuf[1].load()));
}

}  // namespace

ControlTake control_take_datagram(const uint8_t *buffer, size_t capacity, ssize_t received) {
    if (received == 0) {
        return ControlTake::Empty;
    }
    // The kernel cuts a longer datagram to the buffer; the check stays as a guard.
    if (received < 0 || received > static_cast<ssize_t>(capacity)) {
        return ControlTake::EndThread;
    }
    // A one-byte datagram leaves byte 1 as the cleared buffer holds it: 0.
    MsgBuf[0] = buffer[0];
    MsgBuf[1] = buffer[1];
    print_msg_buf();
    return ControlTake::Taken;
}

int detect_camera_udp_init() {
    net_paths_init();
    NetState &state = net_state();
    int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    state.controlFd = fd;
    if (fd < 0) {
        return -1;
    }
    // No meaning for a local socket, so a failure loses nothing.
    int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    // Every receive passes MSG_DONTWAIT, so a blocking socket still never
    // blocks; but failed flags must never be written back as flags.
    const int flags = fcntl(fd, F_GETFL, 0);
    if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0) {
        TRACE_AT(kNetTraceSource, __LINE__, "detect_camera_udp_init", "fcntl(O_NONBLOCK): %s\n",
                 strerror(errno));
    }

    net_set_path(state.controlAddr, sin_path);
    // A socket file left by an earlier run would make the bind fail.
    unlink(sin_path);
    sockaddr_un own = net_load_addr(state.controlAddr);
    if (bind(fd, reinterpret_cast<const sockaddr *>(&own), kUnixAddrLength) < 0) {
        perror("bind");
        close(fd);
        return -1;
    }

    // Descriptors 0 to 2 silently get no thread; the camera never hands them out.
    if (fd > 2) {
        if (pthread_create(&state.controlThread, nullptr, udp_rx_control_main, nullptr) != 0) {
            TRACE_AT(kNetTraceSource, 301, "detect_camera_udp_init",
                     "create udp_rx_panoCamera_main thread failed!\n\n");
            return -1;
        }
        // Nothing ever joins it; it ends with the process or on a receive error.
        pthread_detach(state.controlThread);
    }

    net_set_path(state.itselfAddr, itself_path);
    return 0;
}

void *udp_rx_control_main(void *unused) {
    (void)unused;
    NetState &state = net_state();
    uint8_t buffer[128];
    memset(buffer, 0, sizeof buffer);
    prctl(PR_SET_NAME, "udp_rx_control_main");

    for (;;) {
        const int fd = state.controlFd;
        bool readable = false;
        print_msg_buf();
        if (net_select_readable(fd, nullptr, &readable) < 0) {
            TRACE_AT(kNetTraceSource, 633, "udp_rx_control_main", "select fail!\n\n");
            continue;
        }

        memset(buffer, 0, sizeof buffer);
        // The frame loop may read {0, 0} (stop) until the datagram is taken.
        MsgBuf[0] = 0;
        MsgBuf[1] = 0;
        if (readable) {
            const ssize_t received = net_receive(fd, buffer, sizeof buffer, state.controlAddr);
            if (received == -1) {
                return reinterpret_cast<void *>(-1);
            }
            const ControlTake taken = control_take_datagram(buffer, sizeof buffer, received);
            if (taken == ControlTake::EndThread) {
                return reinterpret_cast<void *>(-1);
            }
            if (taken == ControlTake::Empty) {
                continue;
            }
        }
        usleep(10000);
    }
}

int send_to_itself(const uint8_t *buffer, int length) {
    net_paths_init();
    NetState &state = net_state();
    sockaddr_un destination = net_load_addr(state.itselfAddr);
    ssize_t sent = sendto(state.controlFd, buffer, length, 0,
                          reinterpret_cast<const sockaddr *>(&destination), kUnixAddrLength);
    return sent > 0 ? 0 : -1;
}
