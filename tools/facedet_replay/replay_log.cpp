#include "replay_log.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <nlohmann/json.hpp>

namespace replay {

namespace {

// Whole lines of `text`; a last line without its line end is reported apart,
// because a process killed mid-write leaves half a line there.
std::vector<std::string> whole_lines(const std::string &text, bool *cut) {
    std::vector<std::string> lines;
    size_t at = 0;
    while (at < text.size()) {
        const size_t end = text.find('\n', at);
        if (end == std::string::npos) {
            if (cut) {
                *cut = true;
            }
            break;
        }
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

// The integer after `key` in `line`, or false.
bool int_after(const std::string &line, const char *key, int *value) {
    const size_t at = line.find(key);
    if (at == std::string::npos) {
        return false;
    }
    const char *start = line.c_str() + at + strlen(key);
    char *end = nullptr;
    const long v = strtol(start, &end, 10);
    if (end == start) {
        return false;
    }
    *value = static_cast<int>(v);
    return true;
}

// "[a, b, c, d]" or "(a, b, c, d)" right after `key`: all four, or false.
bool box_after(const std::string &line, const char *key, Box *box) {
    const size_t at = line.find(key);
    if (at == std::string::npos) {
        return false;
    }
    Box b;
    char close = 0;
    const char *start = line.c_str() + at + strlen(key);
    if (sscanf(start, "%d , %d , %d , %d %c", &b.x, &b.y, &b.w, &b.h, &close) != 5 ||
        (close != ']' && close != ')')) {
        return false;
    }
    *box = b;
    return true;
}

// A stage line " ******** NAME time =[N] ms********".
bool stage_ms(const std::string &line, const char *name, int *ms) {
    const std::string key = std::string("******** ") + name + " time =[";
    return int_after(line, key.c_str(), ms);
}

Mode mode_of(unsigned value) {
    switch (value) {
        case 0:
            return Mode::Stop;
        case 1:
            return Mode::Run;
        case 2:
            return Mode::Off;
        default:
            return Mode::Unknown;
    }
}

// The number or text of `key` in a JSON object; false when it is missing or of another type.
bool json_number(const nlohmann::json &line, const char *key, double *value) {
    const auto it = line.find(key);
    if (it == line.end() || !it->is_number()) {
        return false;
    }
    *value = it->get<double>();
    return true;
}

bool json_string(const nlohmann::json &line, const char *key, std::string *value) {
    const auto it = line.find(key);
    if (it == line.end() || !it->is_string()) {
        return false;
    }
    *value = it->get<std::string>();
    return true;
}

}  // namespace

const char *mode_name(Mode mode) {
    switch (mode) {
        case Mode::Stop:
            return "stop";
        case Mode::Run:
            return "run";
        case Mode::Off:
            return "off";
        default:
            return "?";
    }
}

std::string strip_ansi(const std::string &text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\033' && i + 1 < text.size() && text[i + 1] == '[') {
            size_t j = i + 2;
            while (j < text.size() && !((text[j] >= '@' && text[j] <= '~'))) {
                ++j;
            }
            i = j;  // the final letter is skipped too
            continue;
        }
        out += text[i];
    }
    return out;
}

DaemonLog parse_daemon_log(const std::string &out, const std::string &err) {
    DaemonLog log;
    log.cannotOpenSource = err.find("host platform: cannot open FACEDET_SOURCE") != std::string::npos;
    const std::string costKey = " pace, camera time ";
    if (const size_t at = err.find(costKey); at != std::string::npos) {
        log.frameCostMs = std::strtod(err.c_str() + at + costKey.size(), nullptr);
    }
    // The colour reset follows the line end, so escapes are removed before splitting.
    const std::vector<std::string> lines = whole_lines(strip_ansi(out), &log.cutAtEnd);

    Mode mode = Mode::Unknown;
    TakenFrame *f = nullptr;
    int pan = 0, tilt = 0;
    bool havePan = false, haveTilt = false;
    for (const std::string &line : lines) {
        int v = 0;
        if (size_t at = line.find("MsgBuf[1]="); at != std::string::npos) {
            unsigned value = 0;
            if (sscanf(line.c_str() + at + 10, " %x", &value) == 1) {
                mode = mode_of(value);
            }
        }
        if (line.find("MsgBuf[1] == 0x2") != std::string::npos) {
            mode = Mode::Off;
        }
        if (int_after(line, "--------------frameNumber = ", &v)) {
            log.frames.emplace_back();
            f = &log.frames.back();
            f->frameNumber = v;
            f->mode = mode;
            havePan = haveTilt = false;
            continue;
        }
        if (size_t at = line.find("face detector: engine "); at != std::string::npos && f == nullptr) {
            // "face detector: engine NAME, model FILE, N threads"
            const std::string rest = line.substr(at + 22);
            const size_t comma = rest.find(", model ");
            const size_t end = rest.rfind(", ");
            if (comma != std::string::npos && end != std::string::npos && end > comma) {
                log.engine = rest.substr(0, comma);
                log.model = rest.substr(comma + 8, end - comma - 8);
            }
        }
        if (f == nullptr) {
            continue;  // start-up lines, before the first frame
        }
        if (stage_ms(line, "get frame", &v)) {
            f->analysed = true;
            f->getFrameMs = v;
        }
        if (stage_ms(line, "autogamma", &v)) {
            f->autogammaMs = v;
        }
        if (stage_ms(line, "invoke", &v)) {
            f->invokeMs = v;
        }
        if (stage_ms(line, "strategies", &v)) {
            f->strategiesMs = v;
            f->framingRan = true;
            f->mode = Mode::Run;
        }
        if (stage_ms(line, "all", &v)) {
            f->allMs = v;
        }
        Box b;
        if (box_after(line, "face box (x, y, w, h) = (", &b)) {
            f->faces.push_back(b);
        }
        if (int_after(line, "faceNum = ", &v) || int_after(line, "faceNum=", &v)) {
            f->faceNum = v;
        }
        // The last personCenterRect of a frame is the chosen one.
        if (box_after(line, "personCenterRect [", &b)) {
            f->person = b;
            f->hasPerson = true;
        }
        if (int_after(line, "panPoint = ", &v)) {
            pan = v;
            havePan = true;
        }
        if (int_after(line, "tiltPoint = ", &v)) {
            tilt = v;
            haveTilt = true;
        }
        if (int_after(line, "zoomPoint = ", &v) && havePan && haveTilt) {
            f->moved = true;
            f->pan = pan;
            f->tilt = tilt;
            f->zoom = v;
        }
        if (line.find("stop Auto_Frame detect!") != std::string::npos) {
            f->stopFullView = true;
            f->mode = Mode::Stop;
        }
    }
    reconstruct_resets(log.frames);
    return log;
}

void reconstruct_resets(std::vector<TakenFrame> &frames, int noFaceFrames) {
    int count = 0;
    for (TakenFrame &f : frames) {
        f.fullViewReset = false;
        if (!f.framingRan) {
            continue;  // the counter only moves while auto framing runs
        }
        const int faces = f.faceNum >= 0 ? f.faceNum : static_cast<int>(f.faces.size());
        if (faces >= 1) {
            count = 0;
            continue;
        }
        if (++count > noFaceFrames) {
            f.fullViewReset = true;
            count = 0;
        }
    }
}

std::vector<FrameLogEntry> parse_frame_log(const std::string &text) {
    std::vector<FrameLogEntry> entries;
    for (const std::string &line : whole_lines(text, nullptr)) {
        unsigned long long index = 0, pts = 0;
        char fate[16] = {0};
        FrameLogEntry e;
        int used = 0;
        if (sscanf(line.c_str(), "%llu %llu %15s %d.%d%n", &index, &pts, fate, &e.chn, &e.port, &used) != 5) {
            continue;
        }
        if (strcmp(fate, "taken") != 0 && strcmp(fate, "dropped") != 0) {
            continue;
        }
        e.sourceIndex = index;
        e.ptsUs = pts;
        e.taken = strcmp(fate, "taken") == 0;
        entries.push_back(e);
    }
    return entries;
}

SimLog parse_sim_log(const std::string &text) {
    SimLog log;
    for (const std::string &line : whole_lines(text, nullptr)) {
        // A line is a whole object or nothing.
        const nlohmann::json object = nlohmann::json::parse(line, nullptr, false);
        if (!object.is_object()) {
            continue;
        }
        std::string event;
        double t = 0;
        // A time that no 64-bit count of microseconds holds marks a broken line.
        if (!json_string(object, "event", &event) || !json_number(object, "t_us", &t) ||
            !(std::fabs(t) < 9.0e18)) {
            continue;
        }
        if (event == "start") {
            log.started = true;
        } else if (event == "stop") {
            json_string(object, "reason", &log.stopReason);
            if (log.stopReason.empty()) {
                log.stopReason = "stop";
            }
        } else if (event == "rx") {
            SimRx rx;
            rx.tUs = static_cast<int64_t>(t);
            std::string error;
            rx.error = json_string(object, "error", &error);
            json_string(object, "name", &rx.name);
            log.rx.push_back(rx);
        } else if (event == "state") {
            SimState s;
            s.tUs = static_cast<int64_t>(t);
            if (!json_number(object, "pan", &s.pan) || !json_number(object, "tilt", &s.tilt) ||
                !json_number(object, "width", &s.width) || !json_number(object, "height", &s.height)) {
                continue;
            }
            s.targetPan = s.pan;
            s.targetTilt = s.tilt;
            s.targetWidth = s.width;
            json_number(object, "target_pan", &s.targetPan);
            json_number(object, "target_tilt", &s.targetTilt);
            json_number(object, "target_width", &s.targetWidth);
            const auto moving = object.find("moving");
            s.moving = moving != object.end() && *moving == true;
            log.states.push_back(s);
        }
    }
    return log;
}

SimState sim_state_at(const std::vector<SimState> &states, int64_t tUs) {
    auto it = std::upper_bound(states.begin(), states.end(), tUs,
                               [](int64_t t, const SimState &s) { return t < s.tUs; });
    if (it == states.begin()) {
        SimState full;
        full.tUs = tUs;
        return full;
    }
    return *(it - 1);
}

std::vector<GammaAnswer> parse_gamma_output(const std::string &text) {
    std::vector<GammaAnswer> answers;
    for (const std::string &line : whole_lines(text, nullptr)) {
        GammaAnswer a;
        if (sscanf(line.c_str(), "answer %d: valid=%d mean=%d stdDev=%d", &a.answer, &a.valid, &a.mean,
                   &a.stdDev) != 4) {
            continue;
        }
        int_after(line, " p50=", &a.p50);
        int_after(line, " strength=", &a.strength);
        a.accepted = line.find("-> curve accepted") != std::string::npos;
        answers.push_back(a);
    }
    return answers;
}

Spread spread_of(std::vector<double> values) {
    values.erase(std::remove_if(values.begin(), values.end(), [](double v) { return v < 0; }), values.end());
    Spread s;
    s.count = static_cast<int>(values.size());
    if (values.empty()) {
        return s;
    }
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    s.median = n % 2 == 1 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2.0;
    // Nearest rank: the smallest value with at least 95 % of the values at or below it.
    const size_t rank = static_cast<size_t>(std::ceil(0.95 * static_cast<double>(n)));
    s.p95 = values[rank == 0 ? 0 : rank - 1];
    s.max = values.back();
    return s;
}

}  // namespace replay
