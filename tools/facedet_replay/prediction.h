// The prediction check: the packets the PC's daemon sent while replaying a
// recording against the packets the camera's daemon sent, frame by frame.
// Pure: from the recording and the replay's logs.
#ifndef FACEDET_REPLAY_PREDICTION_H
#define FACEDET_REPLAY_PREDICTION_H

#include <string>
#include <vector>

#include "camera_recording.h"
#include "replay_logs.h"

namespace replay {

struct Prediction {
    bool checked = false;    // a recording was replayed
    bool identical = false;  // every frame's packets, and the frames themselves
    int frames = 0;          // recorded frames compared
    int moves = 0;           // of them, the frames after which the camera's daemon sent packets
    // The first difference: the recorded frame (1-based; 0: before the first
    // frame), its time in the recording, what differs, each side's packets
    // and the faces the PC's daemon found on that frame.
    int frame = -1;
    double seconds = 0;
    std::string what;
    std::vector<Packet> camera, pc;
    std::vector<Box> pcFaces;
    std::string hint;  // why the two may part, when the replay knows a reason (also a note)
};

// The PC's packets are those camera_sim received, in order, given to the
// frames by the sends the daemon's log shows for each (the ones that went).
Prediction check_prediction(const CameraRecording &recorded, const DaemonLog &daemon, const SimLog &sim);

// "identical: 43 frames, 12 moves", or "differs at recorded frame 12 (3.52 s): ...".
std::string prediction_line(const Prediction &p);
// Why a difference may be no fault: the line for one found by the PC's own
// x86-64 build on MNN (engine "mnn", not the camera build); else empty.
std::string rounding_hint(const Prediction &p, const std::string &engine, bool cameraBuild);
// "81 01 04 47 00 05 08 0e ff"
std::string packet_hex(const Packet &packet);

}  // namespace replay

#endif
