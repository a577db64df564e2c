#include "fake_camera.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

FakeCamera::FakeCamera(const std::string &path, std::function<Bytes(const Bytes &)> answer)
    : path_(path), answer_(std::move(answer)) {
    fd_ = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un address;
    memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s", path_.c_str());
    unlink(path_.c_str());
    if (fd_ < 0 || bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        throw std::runtime_error("fake camera cannot bind " + path_);
    }
    thread_ = std::thread([this] { run(); });
}

FakeCamera::~FakeCamera() {
    stop_ = true;
    thread_.join();
    close(fd_);
    unlink(path_.c_str());
}

void FakeCamera::run() {
    while (!stop_) {
        pollfd waiting = {fd_, POLLIN, 0};
        if (poll(&waiting, 1, 10) <= 0) {
            continue;
        }
        uint8_t buffer[512];
        sockaddr_un from;
        socklen_t fromLength = sizeof from;
        ssize_t n = recvfrom(fd_, buffer, sizeof buffer, MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&from),
                             &fromLength);
        if (n < 0) {
            continue;
        }
        Bytes packet(buffer, buffer + n);
        {
            std::lock_guard<std::mutex> guard(lock_);
            packets_.push_back(packet);
            const uint8_t *raw = reinterpret_cast<const uint8_t *>(&from);
            lastSender_.assign(raw, raw + fromLength);
        }
        Bytes reply = answer_(packet);
        if (!reply.empty()) {
            sendto(fd_, reply.data(), reply.size(), 0, reinterpret_cast<const sockaddr *>(&from), fromLength);
        }
    }
}

std::vector<FakeCamera::Bytes> FakeCamera::packets() const {
    std::lock_guard<std::mutex> guard(lock_);
    return packets_;
}

bool FakeCamera::send_to_last_sender(const Bytes &bytes) {
    std::vector<uint8_t> to;
    {
        std::lock_guard<std::mutex> guard(lock_);
        to = lastSender_;
    }
    if (to.size() <= sizeof(sa_family_t)) {
        return false;
    }
    return sendto(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(to.data()),
                  static_cast<socklen_t>(to.size())) == static_cast<ssize_t>(bytes.size());
}
