// The recorder's settings and the addresses it recognises.
#include "recorder_settings.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace recorder {
namespace {

// Whether a local socket address names exactly `path` (the kernel may leave
// a path of the full field without its terminating zero).
bool names_path(const sockaddr *address, socklen_t length, const char *path) {
    constexpr socklen_t kPathAt = offsetof(sockaddr_un, sun_path);
    if (address == nullptr || length <= kPathAt || address->sa_family != AF_UNIX || path[0] == '\0') {
        return false;
    }
    const sockaddr_un *un = reinterpret_cast<const sockaddr_un *>(address);
    const size_t room = std::min<size_t>(length - kPathAt, sizeof un->sun_path);
    const size_t used = strnlen(un->sun_path, room);
    return used == strlen(path) && memcmp(un->sun_path, path, used) == 0;
}

}  // namespace

bool settings_from(const char *record, const char *maxMb, const char *runtimeDir, Settings *out, char *why,
                   size_t whySize) {
    *out = Settings();
    if (record == nullptr || record[0] == '\0' || strlen(record) >= sizeof out->dir) {
        snprintf(why, whySize, "FACEDET_RECORD is empty or longer than %zu bytes", sizeof out->dir - 1);
        return false;
    }
    snprintf(out->dir, sizeof out->dir, "%s", record);
    if (maxMb != nullptr && maxMb[0] != '\0') {
        errno = 0;
        char *end = nullptr;
        const unsigned long long mb = strtoull(maxMb, &end, 10);
        if (maxMb[0] < '0' || maxMb[0] > '9' || *end != '\0' || errno != 0 || mb == 0 || mb > (1ull << 40)) {
            snprintf(why, whySize, "FACEDET_RECORD_MAX_MB='%s' is not a whole number of MiB from 1 up",
                     maxMb);
            return false;
        }
        out->maxBytes = mb << 20;
    }
    // As the daemon makes them: "<dir>/<name>", /dev without a runtime folder.
    const char *dir = runtimeDir != nullptr && runtimeDir[0] != '\0' ? runtimeDir : "/dev";
    snprintf(out->cameraPath, sizeof out->cameraPath, "%s/featureCamera_addr.socket", dir);
    snprintf(out->controlPath, sizeof out->controlPath, "%s/sin_addr.socket", dir);
    return true;
}

Peer destination_of(const Settings &s, const sockaddr *to, socklen_t length) {
    if (to == nullptr) {
        return Peer::None;
    }
    if (to->sa_family == AF_INET && length >= sizeof(sockaddr_in)) {
        const sockaddr_in *in = reinterpret_cast<const sockaddr_in *>(to);
        return in->sin_port == htons(kUdpPort) && in->sin_addr.s_addr == htonl(INADDR_LOOPBACK)
                   ? Peer::Udp1259
                   : Peer::None;
    }
    return names_path(to, length, s.cameraPath) ? Peer::Camera : Peer::None;
}

Peer received_from(const Settings &s, const sockaddr *own, socklen_t ownLength, const sockaddr *sender,
                   socklen_t senderLength) {
    if (names_path(own, ownLength, s.controlPath)) {
        return Peer::Control;
    }
    return names_path(sender, senderLength, s.cameraPath) ? Peer::Camera : Peer::None;
}

void recording_name(time_t began, int pid, int attempt, char *out, size_t size) {
    struct tm utc;
    gmtime_r(&began, &utc);
    char stamp[32];
    strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &utc);
    if (attempt == 0) {
        snprintf(out, size, "%s-%d", stamp, pid);
    } else {
        snprintf(out, size, "%s-%d-%d", stamp, pid, attempt);
    }
}

}  // namespace recorder
