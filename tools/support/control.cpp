#include "control.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

bool control_bytes(const std::string &word, uint8_t bytes[2]) {
    bytes[0] = 0x01;
    if (word == "run") {
        bytes[1] = 0x01;
    } else if (word == "stop") {
        bytes[1] = 0x00;
    } else if (word == "off") {
        bytes[1] = 0x02;
    } else {
        return false;
    }
    return true;
}

bool send_control(const std::string &runtimeDir, const uint8_t bytes[2], std::string *error) {
    const std::string path = runtimeDir + "/sin_addr.socket";
    sockaddr_un to;
    std::memset(&to, 0, sizeof to);
    to.sun_family = AF_UNIX;
    if (path.size() >= sizeof to.sun_path) {
        if (error != nullptr) {
            *error = "socket path too long: " + path;
        }
        return false;
    }
    std::memcpy(to.sun_path, path.c_str(), path.size());
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        if (error != nullptr) {
            *error = std::string("cannot create a socket: ") + std::strerror(errno);
        }
        return false;
    }
    const bool sent =
        ::sendto(fd, bytes, 2, MSG_DONTWAIT, reinterpret_cast<const sockaddr *>(&to), sizeof to) == 2;
    const int reason = errno;
    ::close(fd);
    if (!sent && error != nullptr) {
        *error = "cannot send to " + path + ": " + std::strerror(reason) +
                 (reason == ENOENT || reason == ECONNREFUSED ? " (is faceDet running there?)" : "");
    }
    return sent;
}
