#include "run_logs.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <nlohmann/json.hpp>

#include "log_text.h"

namespace logs {

namespace {

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

bool parse_frame_line(const std::string &line, FrameLogEntry *entry) {
    unsigned long long index = 0, pts = 0;
    char fate[16] = {0};
    FrameLogEntry e;
    if (sscanf(line.c_str(), "%llu %llu %15s %d.%d", &index, &pts, fate, &e.chn, &e.port) != 5) {
        return false;
    }
    if (strcmp(fate, "taken") != 0 && strcmp(fate, "dropped") != 0) {
        return false;
    }
    e.sourceIndex = index;
    e.ptsUs = pts;
    e.taken = strcmp(fate, "taken") == 0;
    *entry = e;
    return true;
}

std::vector<FrameLogEntry> parse_frame_log(const std::string &text) {
    std::vector<FrameLogEntry> entries;
    for (const std::string &line : whole_lines(text, nullptr)) {
        FrameLogEntry e;
        if (parse_frame_line(line, &e)) {
            entries.push_back(e);
        }
    }
    return entries;
}

void parse_sim_line(const std::string &line, SimLog *log) {
    // A line is a whole object or nothing.
    const nlohmann::json object = nlohmann::json::parse(line, nullptr, false);
    if (!object.is_object()) {
        return;
    }
    std::string event;
    double t = 0;
    // A time that no 64-bit count of microseconds holds marks a broken line.
    if (!json_string(object, "event", &event) || !json_number(object, "t_us", &t) ||
        !(std::fabs(t) < 9.0e18)) {
        return;
    }
    if (event == "start") {
        log->started = true;
    } else if (event == "stop") {
        json_string(object, "reason", &log->stopReason);
        if (log->stopReason.empty()) {
            log->stopReason = "stop";
        }
    } else if (event == "rx") {
        SimRx rx;
        rx.tUs = static_cast<int64_t>(t);
        std::string error;
        rx.error = json_string(object, "error", &error);
        json_string(object, "name", &rx.name);
        std::string hex;
        json_string(object, "bytes", &hex);
        for (size_t at = 0; at + 1 < hex.size(); at += 3) {
            rx.bytes.push_back(static_cast<uint8_t>(std::strtoul(hex.substr(at, 2).c_str(), nullptr, 16)));
        }
        log->rx.push_back(rx);
    } else if (event == "state") {
        SimState s;
        s.tUs = static_cast<int64_t>(t);
        if (!json_number(object, "pan", &s.pan) || !json_number(object, "tilt", &s.tilt) ||
            !json_number(object, "width", &s.width) || !json_number(object, "height", &s.height)) {
            return;
        }
        s.targetPan = s.pan;
        s.targetTilt = s.tilt;
        s.targetWidth = s.width;
        json_number(object, "target_pan", &s.targetPan);
        json_number(object, "target_tilt", &s.targetTilt);
        json_number(object, "target_width", &s.targetWidth);
        const auto moving = object.find("moving");
        s.moving = moving != object.end() && *moving == true;
        log->states.push_back(s);
    }
}

SimLog parse_sim_log(const std::string &text) {
    SimLog log;
    for (const std::string &line : whole_lines(text, nullptr)) {
        parse_sim_line(line, &log);
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
    SimState s = *(it - 1);
    // The head moves at a steady speed between the samples the camera logs;
    // at the camera's pace they can be a frame's cost apart.
    if (s.moving && it != states.end() && it->tUs > s.tUs) {
        const SimState &next = *it;
        const double f = static_cast<double>(tUs - s.tUs) / static_cast<double>(next.tUs - s.tUs);
        s.pan += (next.pan - s.pan) * f;
        s.tilt += (next.tilt - s.tilt) * f;
        s.width += (next.width - s.width) * f;
        s.height += (next.height - s.height) * f;
        s.tUs = tUs;
    }
    return s;
}

std::vector<GammaAnswer> parse_gamma_answers(const std::string &text) {
    std::vector<GammaAnswer> answers;
    for (const std::string &line : whole_lines(text, nullptr)) {
        const nlohmann::json object = nlohmann::json::parse(line, nullptr, false);
        double answer = 0, valid = 0, mean = 0, stdDev = 0, p50 = 0, strength = 0;
        if (!object.is_object() || !json_number(object, "answer", &answer) || !json_number(object, "valid", &valid) ||
            !json_number(object, "mean", &mean) || !json_number(object, "stdDev", &stdDev)) {
            continue;  // a line cut by a killed peer
        }
        json_number(object, "p50", &p50);
        json_number(object, "strength", &strength);
        GammaAnswer a;
        a.answer = static_cast<int>(answer);
        a.valid = static_cast<int>(valid);
        a.mean = static_cast<int>(mean);
        a.stdDev = static_cast<int>(stdDev);
        a.p50 = static_cast<int>(p50);
        a.strength = static_cast<int>(strength);
        const auto accepted = object.find("accepted");
        a.accepted = accepted != object.end() && *accepted == true;
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

}  // namespace logs
