#include "control_delivery.h"

#include <dirent.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "host_time.h"

namespace host {
namespace {

// The daemon stores the command a moment after its receive returns; a
// preempted control thread gets this much more.
constexpr long kStoreMarginUs = 5000;

void pause_us(long us) {
    timespec ts{us / 1000000, (us % 1000000) * 1000};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

}  // namespace

ControlDelivery::~ControlDelivery() {
    if (fd_ >= 0) {
        ::close(fd_);
    }
}

bool ControlDelivery::bound_here(int fd) const {
    sockaddr_un name;
    socklen_t length = sizeof name;
    if (::getsockname(fd, reinterpret_cast<sockaddr *>(&name), &length) != 0 || name.sun_family != AF_UNIX ||
        length <= offsetof(sockaddr_un, sun_path)) {
        return false;
    }
    const size_t pathBytes = strnlen(name.sun_path, length - offsetof(sockaddr_un, sun_path));
    return path_.compare(0, std::string::npos, name.sun_path, pathBytes) == 0;
}

int ControlDelivery::find_receiver() const {
    DIR *dir = ::opendir("/proc/self/fd");
    if (dir == nullptr) {
        return -1;
    }
    int found = -1;
    while (const dirent *entry = ::readdir(dir)) {
        const int fd = std::atoi(entry->d_name);
        if (entry->d_name[0] != '.' && fd != ::dirfd(dir) && fd != fd_ && bound_here(fd)) {
            found = fd;
            break;
        }
    }
    ::closedir(dir);
    return found;
}

bool ControlDelivery::wait_until_taken() {
    if (receiver_ < 0 || !bound_here(receiver_)) {
        receiver_ = find_receiver();
    }
    if (receiver_ < 0) {
        return false;
    }
    const MI_U64 until = monotonic_us() + kControlTakeWaitMs * 1000ull;
    for (;;) {
        int queued = 0;
        if (::ioctl(receiver_, FIONREAD, &queued) != 0) {
            return false;
        }
        if (queued == 0) {
            pause_us(kStoreMarginUs);
            return true;
        }
        if (monotonic_us() >= until) {
            return false;
        }
        pause_us(500);
    }
}

void ControlDelivery::complain(const std::string &why) {
    if (!complained_) {
        complained_ = true;
        std::fprintf(stderr, "host platform: a recorded control datagram %s\n", why.c_str());
    }
}

bool ControlDelivery::deliver(const uint8_t *bytes, size_t size) {
    sockaddr_un to;
    std::memset(&to, 0, sizeof to);
    to.sun_family = AF_UNIX;
    if (path_.size() >= sizeof to.sun_path) {
        complain("cannot reach " + path_ + ": the path is too long");
        return false;
    }
    std::memcpy(to.sun_path, path_.c_str(), path_.size());
    if (fd_ < 0 && (fd_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) < 0) {
        complain(std::string("could not be sent: ") + std::strerror(errno));
        return false;
    }
    if (::sendto(fd_, bytes, size, MSG_DONTWAIT, reinterpret_cast<const sockaddr *>(&to), sizeof to) !=
        static_cast<ssize_t>(size)) {
        complain("could not be sent to " + path_ + ": " + std::strerror(errno));
        return false;
    }
    ++sent_;
    if (!wait_until_taken()) {
        complain("was not taken by the daemon at " + path_ + " within 1 s");
        return false;
    }
    ++taken_;
    return true;
}

}  // namespace host
