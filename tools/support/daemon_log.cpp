// Reading the daemon's console: its frames, their stages, faces, choices and
// moves, whole or line by line as the output grows.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "daemon_log.h"
#include "log_text.h"

namespace logs {

namespace {

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

}  // namespace

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

const char *mode_name(Mode mode) {
    static const char *const kNames[] = {"?", "stop", "run", "off"};  // in the order of Mode
    return kNames[static_cast<int>(mode)];
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

namespace {

// Days since 1970-01-01 of a proleptic Gregorian date.
long days_from_civil(int y, int m, int d) {
    y -= m <= 2 ? 1 : 0;
    const long era = (y >= 0 ? y : y - 399) / 400;
    const long yoe = y - era * 400;
    const long doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const long doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

// The console's stamp "[YYYY-MM-DD hh:mm:ss:mmm]" at the start of a line; -1 without one.
double stamp_seconds(const std::string &line) {
    int y = 0, mo = 0, d = 0, h = 0, mi = 0, sec = 0, ms = 0;
    const size_t at = line.find('[');
    if (at == std::string::npos ||
        sscanf(line.c_str() + at, "[%4d-%2d-%2d %2d:%2d:%2d:%3d]", &y, &mo, &d, &h, &mi, &sec, &ms) != 7) {
        return -1;
    }
    return static_cast<double>(days_from_civil(y, mo, d)) * 86400.0 + h * 3600.0 + mi * 60.0 + sec +
           ms / 1000.0;
}

}  // namespace

void DaemonLogReader::line(const std::string &raw) {
    // The colour reset follows the line end, so each line loses its escapes.
    const std::string line = strip_ansi(raw);
    int v = 0;
    if (size_t at = line.find("MsgBuf[1]="); at != std::string::npos) {
        unsigned value = 0;
        if (sscanf(line.c_str() + at + 10, " %x", &value) == 1) {
            mode_ = mode_of(value);
        }
    }
    if (line.find("MsgBuf[1] == 0x2") != std::string::npos) {
        mode_ = Mode::Off;
        ++log_.offPasses;
    }
    if (int_after(line, "--------------frameNumber = ", &v)) {
        finish_frame();
        log_.frames.emplace_back();
        TakenFrame &f = log_.frames.back();
        f.frameNumber = v;
        f.logSeconds = stamp_seconds(line);
        f.mode = mode_;
        havePan_ = haveTilt_ = false;
        frameOpen_ = true;
        return;
    }
    if (size_t at = line.find("face detector: engine "); at != std::string::npos && !frameOpen_) {
        // "face detector: engine NAME, model FILE, N threads"
        const std::string rest = line.substr(at + 22);
        const size_t comma = rest.find(", model ");
        const size_t end = rest.rfind(", ");
        if (comma != std::string::npos && end != std::string::npos && end > comma) {
            log_.engine = rest.substr(0, comma);
            log_.model = rest.substr(comma + 8, end - comma - 8);
        }
    }
    if (line.find("(QMT_Video_Stream_Start 2580)exec function pass") != std::string::npos) {
        log_.streamStarted = true;
    }
    if (!frameOpen_) {
        return;  // start-up lines, or a cut log's part of a frame, before the first whole frame
    }
    TakenFrame *f = &log_.frames.back();
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
        const size_t score = line.find("score = ");
        b.score = score == std::string::npos ? 0.0f : std::strtof(line.c_str() + score + 8, nullptr);
        f->faces.push_back(b);
    }
    // camera_send's own line for every packet of this frame; a print
    // without a line end may stand in front of it.
    if (int_after(line, "ret == ", &v)) {
        f->sends.push_back(v);
    }
    if (int_after(line, "faceNum = ", &v) || int_after(line, "faceNum=", &v)) {
        f->faceNum = v;
    }
    // The last personCenterRect of a frame is the chosen one.
    if (box_after(line, "personCenterRect [", &b)) {
        f->person = b;
        f->hasPerson = true;
    }
    // The decision's own words: which axis moved and why.
    if (const size_t at = line.find("******** change_"); at != std::string::npos) {
        f->decisionTrace = line.substr(at);
    }
    if (int_after(line, "panPoint = ", &v)) {
        pan_ = v;
        havePan_ = true;
    }
    if (int_after(line, "tiltPoint = ", &v)) {
        tilt_ = v;
        haveTilt_ = true;
    }
    if (int_after(line, "zoomPoint = ", &v) && havePan_ && haveTilt_) {
        f->moved = true;
        f->pan = pan_;
        f->tilt = tilt_;
        f->zoom = v;
    }
    if (line.find("stop Auto_Frame detect!") != std::string::npos) {
        f->stopFullView = true;
        f->mode = Mode::Stop;
    }
}

void DaemonLogReader::finish_frame() {
    if (frameOpen_) {
        mark_reset(log_.frames.back(), &noFaceFrames_);
        frameOpen_ = false;
    }
}

DaemonLog DaemonLogReader::finish() {
    finish_frame();
    return std::move(log_);
}

std::vector<TakenFrame> DaemonLogReader::take_completed() {
    std::vector<TakenFrame> done;
    const size_t open = frameOpen_ ? 1 : 0;
    if (log_.frames.size() > open) {
        const auto end = log_.frames.end() - static_cast<long>(open);
        done.assign(std::make_move_iterator(log_.frames.begin()), std::make_move_iterator(end));
        log_.frames.erase(log_.frames.begin(), end);
    }
    return done;
}

DaemonLog parse_daemon_log(const std::string &out, const std::string &err) {
    DaemonLogReader reader;
    for (const std::string &line : whole_lines(out, nullptr)) {
        reader.line(line);
    }
    DaemonLog log = reader.finish();
    // The colour reset that follows the last line end is no cut line.
    const size_t lastEnd = out.rfind('\n');
    log.cutAtEnd = !strip_ansi(out.substr(lastEnd == std::string::npos ? 0 : lastEnd + 1)).empty();
    log.frameCostMs = frame_cost_of(err);
    return log;
}

double analysed_fps_of(size_t frames, double printedAllMsSum) {
    return static_cast<double>(frames) * 1000.0 / (printedAllMsSum + 0.5 * static_cast<double>(frames));
}

double frame_cost_of(const std::string &err) {
    const std::string key = " pace, camera time ";
    const size_t at = err.find(key);
    return at == std::string::npos ? -1 : std::strtod(err.c_str() + at + key.size(), nullptr);
}

void mark_reset(TakenFrame &f, int *count, int noFaceFrames) {
    f.fullViewReset = false;
    if (!f.framingRan) {
        return;  // the counter only moves while auto framing runs
    }
    const int faces = f.faceNum >= 0 ? f.faceNum : static_cast<int>(f.faces.size());
    if (faces >= 1) {
        *count = 0;
        return;
    }
    if (++*count > noFaceFrames) {
        f.fullViewReset = true;
        *count = 0;
    }
}

}  // namespace logs
