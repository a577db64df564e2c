#include "prediction.h"

#include <cstdio>
#include <numeric>

namespace replay {
namespace {

std::vector<std::vector<Packet>> pc_packets_by_frame(const DaemonLog &daemon, const SimLog &sim,
                                                     std::vector<Packet> *start) {
    std::vector<size_t> counts;
    for (const TakenFrame &frame : daemon.frames) {
        size_t sent = 0;
        for (const int result : frame.sends) {
            sent += result > 0 ? 1 : 0;
        }
        counts.push_back(sent);
    }
    const size_t inFrames = std::accumulate(counts.begin(), counts.end(), size_t{0});
    // What came before the first frame's sends was sent before it.
    size_t next = sim.rx.size() > inFrames ? sim.rx.size() - inFrames : 0;
    for (size_t i = 0; i < next; ++i) {
        start->push_back(sim.rx[i].bytes);
    }
    std::vector<std::vector<Packet>> byFrame(counts.size());
    for (size_t f = 0; f < counts.size(); ++f) {
        for (size_t k = 0; k < counts[f] && next < sim.rx.size(); ++k) {
            byFrame[f].push_back(sim.rx[next++].bytes);
        }
    }
    return byFrame;
}

std::string packets_text(const std::vector<Packet> &packets) {
    if (packets.empty()) {
        return "none";
    }
    std::string text;
    for (const Packet &packet : packets) {
        text += (text.empty() ? "" : ", ") + packet_hex(packet);
    }
    return text;
}

}  // namespace

std::string packet_hex(const Packet &packet) {
    std::string text;
    char byte[4];
    for (const uint8_t b : packet) {
        snprintf(byte, sizeof byte, "%02x", b);
        text += (text.empty() ? "" : " ") + std::string(byte);
    }
    return text;
}

Prediction check_prediction(const CameraRecording &recorded, const DaemonLog &daemon, const SimLog &sim) {
    Prediction p;
    p.checked = true;
    std::vector<Packet> pcStart;
    const std::vector<std::vector<Packet>> pc = pc_packets_by_frame(daemon, sim, &pcStart);
    if (pcStart != recorded.startPackets) {
        p.frame = 0;
        p.what = "the packets before the first frame differ";
        p.camera = recorded.startPackets;
        p.pc = pcStart;
        return p;
    }
    const size_t frames = recorded.frames.size();
    for (size_t i = 0; i < frames; ++i) {
        const CameraFrame &camera = recorded.frames[i];
        if (i >= pc.size()) {
            p.frame = static_cast<int>(i) + 1;
            p.seconds = camera.timeUs / 1e6;
            p.what = "the PC's daemon took " + std::to_string(pc.size()) + " of the " +
                     std::to_string(frames) + " recorded frames";
            p.camera = camera.packets;
            return p;
        }
        if (pc[i] != camera.packets) {
            p.frame = static_cast<int>(i) + 1;
            p.seconds = camera.timeUs / 1e6;
            p.what = "the packets differ";
            p.camera = camera.packets;
            p.pc = pc[i];
            p.pcFaces = daemon.frames[i].faces;
            return p;
        }
        ++p.frames;
        p.moves += camera.packets.empty() ? 0 : 1;
    }
    if (pc.size() > frames) {
        p.frame = static_cast<int>(frames) + 1;
        p.what = "the PC's daemon took " + std::to_string(pc.size()) + " frames, the camera's " +
                 std::to_string(frames);
        p.pc = pc[frames];
        return p;
    }
    p.identical = true;
    return p;
}

std::string prediction_line(const Prediction &p) {
    if (p.identical) {
        return "identical: " + std::to_string(p.frames) + " frames, " + std::to_string(p.moves) + " moves";
    }
    char at[64];
    if (p.frame == 0) {
        snprintf(at, sizeof at, "before the first frame");
    } else {
        snprintf(at, sizeof at, "at recorded frame %d (%.2f s)", p.frame, p.seconds);
    }
    std::string faces;
    for (const Box &b : p.pcFaces) {
        char box[80];
        snprintf(box, sizeof box, "%s(%d, %d, %d, %d) %.3f", faces.empty() ? "" : ", ", b.x, b.y, b.w, b.h,
                 b.score);
        faces += box;
    }
    return "differs " + std::string(at) + ": " + p.what + "; camera sent: " + packets_text(p.camera) +
           "; PC sent: " + packets_text(p.pc) +
           (p.frame > 0 ? "; PC faces: " + (faces.empty() ? "none" : faces) : "");
}

std::string rounding_hint(const Prediction &p, const std::string &engine, bool cameraBuild) {
    // MNN's x86-64 int8 kernels requantise a rare value one step away from the
    // camera's ARMv7 NEON ones (every x86 kernel family agrees with the others),
    // so at a close call the PC's own build parts from the camera.
    if (p.identical || engine != "mnn" || cameraBuild) {
        return "";
    }
    return "this PC ran its own x86-64 build, whose int8 network rounds a few values differently "
           "from the camera's ARM build; --arm replays with the camera build under qemu-arm";
}

}  // namespace replay
