// The endpoints' module state and the runtime paths of their sockets.
#include <sys/select.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "dbgout/runtime_env.h"
#include "net_communication/net_communication.h"
#include "net_communication/net_state.h"

const char *sin_path = nullptr;
const char *itself_path = nullptr;
const char *featureCamera_path = nullptr;

void net_paths_init() {
    // The runtime directory comes from the environment, which a test sets
    // after static construction; so the paths are made at first use, once.
    static const bool ready = [] {
        static const std::string sinText = runtime_path("sin_addr.socket");
        static const std::string itselfText = runtime_path("itself_addr.socket");
        static const std::string featureText = runtime_path("featureCamera_addr.socket");
        sin_path = sinText.c_str();
        itself_path = itselfText.c_str();
        featureCamera_path = featureText.c_str();
        return true;
    }();
    (void)ready;
}

NetState &net_state() {
    static NetState state;
    return state;
}

void net_store_sender(sockaddr_un &record, const sockaddr_un &from, socklen_t length) {
    if (length > sizeof record) {
        length = sizeof record;
    }
    std::lock_guard<std::mutex> guard(net_state().addrLock);
    memcpy(&record, &from, length);
}

void net_set_path(sockaddr_un &record, const char *path) {
    std::lock_guard<std::mutex> guard(net_state().addrLock);
    memset(&record, 0, sizeof record);
    record.sun_family = AF_UNIX;
    snprintf(record.sun_path, sizeof record.sun_path, "%s", path);
}

sockaddr_un net_load_addr(const sockaddr_un &record) {
    std::lock_guard<std::mutex> guard(net_state().addrLock);
    return record;
}

void set_camera_reply_handler(CameraReplyHandler handler) {
    net_state().replyHandler = handler;
}

int net_select_readable(int fd, struct timeval *timeout, bool *readable) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    const int result = select(fd + 1, &set, nullptr, nullptr, timeout);
    *readable = result > 0 && FD_ISSET(fd, &set);
    return result;
}

ssize_t net_receive(int fd, uint8_t *buffer, size_t size, sockaddr_un &senderRecord) {
    sockaddr_un sender;
    socklen_t senderLength = sizeof sender;
    const ssize_t received =
        recvfrom(fd, buffer, size, MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&sender), &senderLength);
    if (received != -1) {
        net_store_sender(senderRecord, sender, senderLength);
    }
    return received;
}
