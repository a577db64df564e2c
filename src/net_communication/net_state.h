/*
 * The endpoints' module state, shared by the init functions, the two receive
 * threads and camera_send. Not part of the daemon's interface: only this
 * folder and its tests include it.
 */
#ifndef FACEDET_NET_STATE_H
#define FACEDET_NET_STATE_H

#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "net_communication/net_communication.h"

// Every address record is passed with this length, whatever its path.
constexpr socklen_t kUnixAddrLength = 110;
static_assert(sizeof(sockaddr_un) == kUnixAddrLength, "the local address record is 110 bytes");

// Line numbers and source path that the trace lines of this module carry.
constexpr const char *kNetTraceSource = "src/net_communication";

struct NetState {
    std::atomic<int> controlFd{0};
    // The receive threads write the sender of each datagram into these two
    // records while other threads read them, so they are guarded.
    std::mutex addrLock;
    sockaddr_un controlAddr{};        // own address, then the last control sender
    sockaddr_un featureCameraAddr{};  // destination of camera_send, then the last replier
    sockaddr_un itselfAddr{};         // destination of send_to_itself
    // Asks the VISCA receive thread to close its socket and end. The daemon never
    // sets it; it is how a test (or a later restart) takes the endpoint down.
    std::atomic<uint8_t> featureStopRequest{0};
    std::atomic<int> featureFd{0};
    // Where the feature receive thread hands each reply.
    std::atomic<CameraReplyHandler> replyHandler{nullptr};
    std::atomic<uint8_t> featureRxRunning{0};
    // Packets the camera did not take, and whether the last send was one of
    // them (camera_send then stops waiting for room in the camera's queue).
    std::atomic<bool> cameraDropping{false};
    std::atomic<uint64_t> cameraDropped{0};
    uint64_t cameraDroppedAtStart = 0;  // cameraDropped when the current run of drops began
    // The socket has no send time limit (setting it failed): no send may wait.
    std::atomic<bool> sendsNeverWait{false};
    pthread_t controlThread{};
    pthread_t featureThread{};
};

NetState &net_state();

// What the control receive thread does with one received datagram of
// `received` bytes in a cleared `buffer` of `capacity` (at least 2) bytes: takes its first
// two bytes into MsgBuf, ignores it when empty, or ends the thread.
enum class ControlTake { Taken, Empty, EndThread };
ControlTake control_take_datagram(const uint8_t *buffer, size_t capacity, ssize_t received);

// Copies the first `length` bytes of `from` over `record`, under the lock:
// what recvfrom does when it writes the sender straight into the record.
void net_store_sender(sockaddr_un &record, const sockaddr_un &from, socklen_t length);

// Clears `record` and makes it the local address `path`, under the lock. A
// path longer than the record holds is cut.
void net_set_path(sockaddr_un &record, const char *path);

// A copy of `record` taken under the lock.
sockaddr_un net_load_addr(const sockaddr_un &record);

// The receive threads' two steps. select for reading on `fd` alone (a null
// timeout waits without end): select's result, and whether fd is readable.
int net_select_readable(int fd, struct timeval *timeout, bool *readable);
// One datagram, without waiting, into `buffer`; its sender goes into
// `senderRecord` (under the lock) unless the receive failed. recvfrom's result.
ssize_t net_receive(int fd, uint8_t *buffer, size_t size, sockaddr_un &senderRecord);

#endif
