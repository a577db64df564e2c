#include "camera_recording.h"

#include "recording/reader.h"

namespace replay {

Mode control_mode(const Packet &datagram) {
    // A one-byte datagram leaves byte 1 cleared: stop.
    return mode_of(datagram.size() > 1 ? datagram[1] : 0);
}

bool read_camera_recording(const std::string &path, CameraRecording *out, std::string *error) {
    std::unique_ptr<recording::Reader> reader =
        recording::Reader::open(path, recording::kAnalysisFrame, error);
    if (!reader) {
        return false;
    }
    CameraRecording rec;
    rec.file = reader->file();
    const uint64_t start = reader->header().startMonotonicUs;
    Mode mode = Mode::Stop;  // the daemon's command before any datagram
    bool controlSince = false;
    for (recording::Record r; reader->next(&r);) {
        switch (r.kind) {
            case recording::Kind::Frame: {
                CameraFrame frame;
                frame.timeUs = r.timeUs > start ? r.timeUs - start : 0;
                frame.mode = mode;
                frame.controlBefore = controlSince;
                controlSince = false;
                rec.frames.push_back(std::move(frame));
                break;
            }
            case recording::Kind::CameraPacket:
                (rec.frames.empty() ? rec.startPackets : rec.frames.back().packets).push_back(r.bytes);
                break;
            case recording::Kind::Control:
                if (r.datagram.result > 0) {
                    mode = control_mode(r.bytes);
                    controlSince = true;
                    ++rec.controls;
                }
                break;
            case recording::Kind::Dropped:
                rec.dropped += r.dropped.frames + r.dropped.datagrams;
                break;
            default:
                break;
        }
    }
    rec.damaged = reader->damaged();
    rec.cut = reader->cut();
    rec.ended = reader->ended();
    rec.summary = reader->summary();

    std::vector<double> takeMs;
    for (size_t i = 0; i + 1 < rec.frames.size(); ++i) {
        const CameraFrame &frame = rec.frames[i], &next = rec.frames[i + 1];
        if (i >= static_cast<size_t>(kWarmUpFrames) && frame.mode == Mode::Run && !next.controlBefore) {
            takeMs.push_back(static_cast<double>(next.timeUs - frame.timeUs) / 1000.0);
        }
    }
    rec.frameTimeMs = spread_of(takeMs);
    *out = std::move(rec);
    return true;
}

}  // namespace replay
