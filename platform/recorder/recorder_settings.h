/*
 * What the flight recorder is told by the environment, and which of the
 * daemon's datagrams it keeps: told apart by the addresses the daemon sends to
 * and receives on, never by descriptor numbers. Plain functions on fixed-size
 * records: they run inside the recorded process, before its main and on its
 * threads.
 */
#ifndef FACEDET_RECORDER_SETTINGS_H
#define FACEDET_RECORDER_SETTINGS_H

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace recorder {

constexpr uint64_t kDefaultMaxMb = 256;
constexpr uint16_t kUdpPort = 1259;

struct Settings {
    char dir[512] = {};                       // FACEDET_RECORD: recordings are made inside it
    uint64_t maxBytes = kDefaultMaxMb << 20;  // FACEDET_RECORD_MAX_MB, for all recordings in dir together
    // The daemon's socket paths, made as it makes them from FACEDET_RUNTIME_DIR
    // (default /dev) and cut to a socket address as it cuts them.
    char cameraPath[sizeof(sockaddr_un::sun_path)] = {};
    char controlPath[sizeof(sockaddr_un::sun_path)] = {};
};

// From the variables' values (null when unset). False with one line in `why`
// when FACEDET_RECORD is unusable or FACEDET_RECORD_MAX_MB is not a whole
// number of MiB from 1 up.
bool settings_from(const char *record, const char *maxMb, const char *runtimeDir, Settings *out, char *why,
                   size_t whySize);

enum class Peer { None, Camera, Udp1259, Control };

// A send's destination: the camera's control process, UDP 127.0.0.1:1259, or neither.
Peer destination_of(const Settings &s, const sockaddr *to, socklen_t length);
// A datagram received on a socket bound to `own`, from `sender`: a control
// datagram (own is the control path), the camera's reply (sent from the
// camera's path), or neither.
Peer received_from(const Settings &s, const sockaddr *own, socklen_t ownLength, const sockaddr *sender,
                   socklen_t senderLength);

// A recording directory's name: the UTC time it began and the pid, e.g.
// "20250114-093012-1234", and "-N" from the second try on.
void recording_name(time_t began, int pid, int attempt, char *out, size_t size);

}  // namespace recorder

#endif
