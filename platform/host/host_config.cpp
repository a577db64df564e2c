/*
 * Environment parsing for the host platform. Pure string handling apart from
 * getenv in config_from_env.
 */
#include "host_config.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "recording/reader.h"

namespace host {
namespace {

std::string trim(const std::string &s) {
    size_t b = 0;
    size_t e = s.size();
    while (b < e && std::isspace(static_cast<unsigned char>(s[b]))) {
        ++b;
    }
    while (e > b && std::isspace(static_cast<unsigned char>(s[e - 1]))) {
        --e;
    }
    return s.substr(b, e - b);
}

std::string lower(std::string s) {
    for (char &c : s) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return s;
}

// Decimal digits only: strtoull would accept signs and spaces.
bool parse_u64(const std::string &s, uint64_t *out) {
    if (s.empty() || s.size() > 20) {
        return false;
    }
    uint64_t v = 0;
    for (char c : s) {
        if (c < '0' || c > '9') {
            return false;
        }
        const uint64_t d = static_cast<uint64_t>(c - '0');
        if (v > (std::numeric_limits<uint64_t>::max() - d) / 10) {
            return false;
        }
        v = v * 10 + d;
    }
    *out = v;
    return true;
}

bool parse_positive(const std::string &s, uint64_t *out) {
    return parse_u64(s, out) && *out > 0;
}

// Decimal (optionally negative) or 0x-hex; any 32-bit pattern, since MI error
// codes have the top bit set. Zero is refused: it would not be a failure.
bool parse_code(const std::string &s, MI_S32 *out) {
    uint64_t v = 0;
    if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
        const std::string digits = s.substr(2);
        if (digits.empty() || digits.size() > 8) {
            return false;
        }
        for (char c : digits) {
            if (!std::isxdigit(static_cast<unsigned char>(c))) {
                return false;
            }
        }
        v = std::strtoull(digits.c_str(), nullptr, 16);
    } else if (!s.empty() && s[0] == '-') {
        uint64_t magnitude = 0;
        if (!parse_u64(s.substr(1), &magnitude) || magnitude > 0x80000000ull) {
            return false;
        }
        v = static_cast<uint64_t>(-static_cast<int64_t>(magnitude)) & 0xFFFFFFFFull;
    } else if (!parse_u64(s, &v) || v > 0xFFFFFFFFull) {
        return false;
    }
    if (v == 0) {
        return false;
    }
    *out = static_cast<MI_S32>(static_cast<uint32_t>(v));
    return true;
}

bool parse_seconds(const std::string &s, double *out) {
    if (s.empty() || !(std::isdigit(static_cast<unsigned char>(s[0])) || s[0] == '.')) {
        return false;
    }
    errno = 0;
    char *end = nullptr;
    const double v = std::strtod(s.c_str(), &end);
    // An hour is far beyond any test; larger values are more likely typos.
    if (errno != 0 || end != s.c_str() + s.size() || !std::isfinite(v) || v < 0.0 || v > 3600.0) {
        return false;
    }
    *out = v;
    return true;
}

bool parse_stall(const std::string &value, Faults *f) {
    const size_t at = value.find('@');
    double seconds = 0.0;
    uint64_t frame = 0;
    if (!parse_seconds(value.substr(0, at), &seconds)) {
        return false;
    }
    if (at != std::string::npos && !parse_u64(value.substr(at + 1), &frame)) {
        return false;
    }
    f->stallSeconds = seconds;
    f->stallAtFrame = frame;
    return true;
}

bool parse_flag(const char *name, const char *raw, bool *out, std::string *error) {
    const std::string v = lower(trim(raw ? raw : ""));
    if (v.empty() || v == "0" || v == "false" || v == "no" || v == "off") {
        *out = false;
        return true;
    }
    if (v == "1" || v == "true" || v == "yes" || v == "on") {
        *out = true;
        return true;
    }
    *error = std::string(name) + " '" + raw + "' is not 0 or 1";
    return false;
}

}  // namespace

bool parse_faults(const std::string &text, Faults *out, std::string *error) {
    Faults f;
    size_t start = 0;
    while (start <= text.size()) {
        size_t comma = text.find(',', start);
        if (comma == std::string::npos) {
            comma = text.size();
        }
        const std::string entry = trim(text.substr(start, comma - start));
        start = comma + 1;
        if (entry.empty()) {
            continue;  // tolerate "a,,b" and a trailing comma
        }
        const size_t eq = entry.find('=');
        const std::string name = trim(entry.substr(0, eq));
        const bool hasValue = eq != std::string::npos;
        const std::string value = hasValue ? trim(entry.substr(eq + 1)) : std::string();
        bool ok = false;
        bool known = true;
        if (name == "getbuf_fail") {
            ok = hasValue && parse_positive(value, &f.getbufFailAt);
        } else if (name == "getbuf_fail_every") {
            ok = hasValue && parse_positive(value, &f.getbufFailEvery);
        } else if (name == "putbuf_fail_every") {
            ok = hasValue && parse_positive(value, &f.putbufFailEvery);
        } else if (name == "getfd_fail") {
            ok = !hasValue || value == "1";
            f.getfdFail = true;
        } else if (name == "portmode_fail") {
            ok = hasValue && parse_code(value, &f.portmodeFailCode);
            f.portmodeFail = true;
        } else if (name == "stall") {
            ok = hasValue && parse_stall(value, &f);
        } else {
            known = false;
        }
        if (!known) {
            *error = "FACEDET_FAULTS entry '" + entry + "' is not a known fault";
            return false;
        }
        if (!ok) {
            *error = "FACEDET_FAULTS entry '" + entry + "' has a malformed value";
            return false;
        }
    }
    *out = f;
    return true;
}

bool parse_pace(const std::string &text, Pace *out, std::string *error) {
    const std::string v = lower(trim(text));
    if (v.empty() || v == "realtime") {
        *out = Pace::Realtime;
        return true;
    }
    if (v == "lockstep") {
        *out = Pace::Lockstep;
        return true;
    }
    if (v == "camera") {
        *out = Pace::Camera;
        return true;
    }
    if (v == "recorded") {
        *out = Pace::Recorded;
        return true;
    }
    *error = "FACEDET_PACE '" + text + "' is not realtime, lockstep, camera or recorded";
    return false;
}

bool parse_frame_cost(const std::string &text, double *ms, std::string *error) {
    const std::string v = trim(text);
    errno = 0;
    char *end = nullptr;
    const double value = v.empty() ? 0.0 : std::strtod(v.c_str(), &end);
    // strtod also takes hex, "inf" and "nan": only plain decimals pass.
    const bool plain = !v.empty() && v.find_first_not_of("0123456789.") == std::string::npos;
    if (!plain || errno != 0 || end != v.c_str() + v.size() || !(value > 0.0) || value > kMaxFrameCostMs) {
        *error =
            "FACEDET_FRAME_COST_MS '" + text + "' is not a number of milliseconds above 0 and up to 10000";
        return false;
    }
    *ms = value;
    return true;
}

bool config_from_env(Config *out, std::string *error) {
    auto env = [](const char *name) -> std::string {
        const char *v = std::getenv(name);
        return v ? std::string(v) : std::string();
    };
    Config c;
    c.source = env("FACEDET_SOURCE");
    c.frameLogPath = env("FACEDET_FRAME_LOG");
    c.frameTapPath = env("FACEDET_FRAME_TAP");
    c.deliveredPath = env("FACEDET_DELIVERED_FRAMES");
    if (!parse_pace(env("FACEDET_PACE"), &c.pace, error) ||
        !parse_flag("FACEDET_LOOP", std::getenv("FACEDET_LOOP"), &c.loop, error) ||
        !parse_flag("FACEDET_EXIT_AT_END", std::getenv("FACEDET_EXIT_AT_END"), &c.exitAtEnd, error) ||
        !parse_faults(env("FACEDET_FAULTS"), &c.faults, error)) {
        return false;
    }
    if (const char *cost = std::getenv("FACEDET_FRAME_COST_MS"); cost && *cost) {
        if (!parse_frame_cost(cost, &c.frameCostMs, error)) {
            return false;
        }
        c.hasFrameCost = true;
    }
    const bool recording = !c.source.empty() && recording::is_recording_path(c.source);
    if (trim(env("FACEDET_PACE")).empty() && recording) {
        c.pace = Pace::Recorded;
    } else if (c.pace == Pace::Recorded && !recording) {
        *error = "FACEDET_PACE recorded plays a flight recording, and FACEDET_SOURCE is none";
        return false;
    }
    const std::string runtimeDir = env("FACEDET_RUNTIME_DIR");
    if (c.pace != Pace::Realtime && !runtimeDir.empty()) {
        c.clockPath = runtimeDir + "/source_clock";
    }
    // Where the daemon binds its control socket (the same default folder).
    c.controlPath = (runtimeDir.empty() ? std::string("/dev") : runtimeDir) + "/sin_addr.socket";
    *out = c;
    return true;
}

}  // namespace host
