// A flight recording as the replay compares it: the frames the camera's
// daemon took, with the command each was taken under and the packets the
// daemon sent the camera process before it took the next, and the camera's
// own time per analysed frame from the take times.
#ifndef FACEDET_REPLAY_CAMERA_RECORDING_H
#define FACEDET_REPLAY_CAMERA_RECORDING_H

#include <cstdint>
#include <string>
#include <vector>

#include "replay_logs.h"

namespace replay {

using Packet = std::vector<uint8_t>;

struct CameraFrame {
    uint64_t timeUs = 0;          // when the camera took it, since the recording began
    Mode mode = Mode::Stop;       // the last control datagram's command before it (at start: stop)
    bool controlBefore = false;   // a control datagram came since the frame before
    std::vector<Packet> packets;  // sent to the camera process after it, before the next frame
};

struct CameraRecording {
    std::string file;                  // the recording's file
    std::string summary;               // the reader's line on how it ended
    std::vector<Packet> startPackets;  // sent before the first frame
    std::vector<CameraFrame> frames;
    int controls = 0;  // control datagrams
    uint64_t cut = 0;  // records lost to damage
    bool damaged = false, ended = false;
    uint64_t dropped = 0;  // events the recorder could not keep
    // The camera's milliseconds per analysed frame: from each take under auto
    // framing, past the warm-up, to the next take with no command between.
    Spread frameTimeMs;
};

// Reads the whole recording. False, with *error one line naming the file,
// when it is not a recording, has another version or other frames; a damaged
// one is read up to its damage (damaged, cut, summary).
bool read_camera_recording(const std::string &path, CameraRecording *out, std::string *error);

// The command of a control datagram's bytes, as the daemon takes it (byte 1).
Mode control_mode(const Packet &datagram);

}  // namespace replay

#endif
