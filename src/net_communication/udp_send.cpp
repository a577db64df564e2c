// One-shot UDP sends to other processes of the camera on the loopback.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "net_communication/net_communication.h"

namespace {

sockaddr_in loopback(uint16_t port) {
    sockaddr_in address;
    memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

ssize_t send_to_port(int fd, const uint8_t *buffer, int length, uint16_t port) {
    sockaddr_in to = loopback(port);
    return sendto(fd, buffer, length, 0, reinterpret_cast<const sockaddr *>(&to), sizeof to);
}

}  // namespace

// When nothing was sent the socket is left open; the camera build behaves the
// same way, and these sends are rare enough that the descriptor never runs out.
int send_udp_1259(const uint8_t *buffer, int length) {
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (send_to_port(fd, buffer, length, 1259) <= 0) {
        return -1;
    }
    close(fd);
    return 0;
}

int send_aw_af(const uint8_t *buffer, int length) {
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    ssize_t sent = send_to_port(fd, buffer, length, 12888);
    printf("send aw length = %d\n", static_cast<int>(sent));
    if (sent <= 0) {
        return -1;
    }
    sent = send_to_port(fd, buffer, length, 13888);
    printf("send af length = %d\n", static_cast<int>(sent));
    if (sent <= 0) {
        return -1;
    }
    close(fd);
    return 0;
}
