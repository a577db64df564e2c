#include "framing_support.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <thread>

std::string to_string(const Ptz &p) {
    char text[64];
    snprintf(text, sizeof text, "(pan %d, tilt %d, zoom %d)", p.pan, p.tilt, p.zoom);
    return text;
}

namespace {

// The integer after `key` in line, or false.
bool value_after(const std::string &line, const std::string &key, int *value) {
    size_t at = line.find(key);
    if (at == std::string::npos) {
        return false;
    }
    *value = atoi(line.c_str() + at + key.size());
    return true;
}

// Nibble-encoded 16-bit value: four bytes 0n, high nibble first.
int nibbles(const std::vector<int> &bytes, size_t first) {
    int v = 0;
    for (size_t i = first; i < first + 4; ++i) {
        v = (v << 4) | (bytes[i] & 0x0f);
    }
    return static_cast<int16_t>(v);
}

std::vector<int> hex_bytes(const std::string &line) {
    std::vector<int> bytes;
    const std::string key = "\"bytes\":\"";
    size_t at = line.find(key);
    if (at == std::string::npos) {
        return bytes;
    }
    std::istringstream in(line.substr(at + key.size(), line.find('"', at + key.size()) - at - key.size()));
    for (std::string b; in >> b;) {
        bytes.push_back(static_cast<int>(strtol(b.c_str(), nullptr, 16)));
    }
    return bytes;
}

}  // namespace

std::vector<FrameTrace> frame_traces(const std::string &daemonOut) {
    std::vector<FrameTrace> frames;
    std::istringstream in(daemonOut);
    for (std::string line; std::getline(in, line);) {
        int v = 0;
        if (value_after(line, "--------------frameNumber = ", &v)) {
            frames.push_back({});
            frames.back().frameNumber = v;
            continue;
        }
        if (frames.empty()) {
            continue;
        }
        FrameTrace &f = frames.back();
        // The selection's count line is printed without a line break of its own.
        if (value_after(line, "***************** faceNum = ", &v)) {
            f.faceNum = v;
        }
        if (value_after(line, "******************** panPoint = ", &v)) {
            f.tracedMove = true;
            f.move.pan = v;
        } else if (value_after(line, "******************** tiltPoint = ", &v)) {
            f.move.tilt = v;
        } else if (value_after(line, "******************** zoomPoint = ", &v)) {
            f.move.zoom = v;
        } else if (line.find("ret == 15") != std::string::npos) {
            ++f.panTiltSends;
        }
    }
    return frames;
}

std::vector<FrameTrace> traced_moves(const std::vector<FrameTrace> &frames) {
    std::vector<FrameTrace> moves;
    std::copy_if(frames.begin(), frames.end(), std::back_inserter(moves),
                 [](const FrameTrace &f) { return f.tracedMove; });
    return moves;
}

std::vector<Ptz> received_moves(const std::string &simLog, int *unpaired) {
    std::vector<Ptz> moves;
    *unpaired = 0;
    bool zoomPending = false;
    int zoom = 0;
    std::istringstream in(simLog);
    for (std::string line; std::getline(in, line);) {
        if (line.find("\"event\":\"rx\"") == std::string::npos) {
            continue;
        }
        const std::vector<int> bytes = hex_bytes(line);
        if (line.find("\"name\":\"zoom_absolute\"") != std::string::npos && bytes.size() == 9) {
            *unpaired += zoomPending ? 1 : 0;
            zoomPending = true;
            zoom = nibbles(bytes, 4);
        } else if (line.find("\"name\":\"pan_tilt_absolute\"") != std::string::npos && bytes.size() == 15) {
            if (zoomPending) {
                moves.push_back({nibbles(bytes, 6), nibbles(bytes, 10), zoom});
            } else {
                ++*unpaired;
            }
            zoomPending = false;
        }
    }
    *unpaired += zoomPending ? 1 : 0;
    return moves;
}

Ptz framing_for_face(const scenario::FaceTruth &face) {
    // Output space, truncated as the daemon scales.
    const int x = static_cast<int>(face.x * 1920.0 / 416), w = static_cast<int>(face.w * 1920.0 / 416);
    const int y = static_cast<int>(face.y * 1080.0 / 234), h = static_cast<int>(face.h * 1080.0 / 234);
    const int s = (h > 0 && w / h >= 1) ? w : (w + h) / 2;
    int px = x - s, pw = 3 * s;
    int py = static_cast<int>(y - 0.6 * s), ph = static_cast<int>(2.85 * s);
    if (px < 0) {
        pw += px;
        px = 0;
    }
    pw = std::min(pw, 1919 - px);
    if (py < 0) {
        ph += py;
        py = 0;
    }
    ph = std::min(ph, 1079 - py);
    const int width = std::max(ph * 16 / 9, pw);
    const int height = std::max(ph, pw * 9 / 16);
    int cx = px + pw / 2, cy = py + ph / 2;
    cx = std::max(cx, width / 2);
    if (1920 - cx < width / 2) {
        cx = 1920 - width / 2;
    }
    cy = std::max(cy, height / 2);
    if (1080 - cy < height / 2) {
        cy = 1080 - height / 2;
    }
    return {cx - 960, 540 - cy, width};
}

bool frames_face(const Ptz &move, const scenario::FaceTruth &face, std::string *why) {
    const Ptz want = framing_for_face(face);
    const double panSlack = 0.08 * want.zoom + 30;
    const double tiltSlack = 0.08 * want.zoom * 9 / 16 + 30;
    const double zoomSlack = 0.12 * want.zoom;
    const bool ok = std::abs(move.pan - want.pan) <= panSlack &&
                    std::abs(move.tilt - want.tilt) <= tiltSlack &&
                    std::abs(move.zoom - want.zoom) <= zoomSlack;
    if (!ok && why != nullptr) {
        char text[200];
        snprintf(text, sizeof text, "move %s, face %d,%d %dx%d on frame %d frames as %s",
                 to_string(move).c_str(), face.x, face.y, face.w, face.h, face.frame,
                 to_string(want).c_str());
        *why = text;
    }
    return ok;
}

bool wait_until(const std::function<bool()> &done, std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

size_t lines_containing(const std::string &text, const std::string &needle) {
    size_t n = 0;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        n += line.find(needle) != std::string::npos ? 1 : 0;
    }
    return n;
}
