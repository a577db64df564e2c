#include "live_model.h"

#include <fcntl.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "json_number.h"

namespace live {
namespace {

// The analysed frames whose "all" stage times give the rate: about two
// seconds of them at the camera's pace.
constexpr size_t kRateFrames = 10;
// Taken frames remembered for matching the daemon's frames with the source's.
constexpr size_t kRememberedFrames = 300;

}  // namespace

void LineTail::poll(const std::function<void(const std::string &)> &line) {
    const int fd = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return;  // not written yet
    }
    char buffer[65536];
    ssize_t n;
    while ((n = ::pread(fd, buffer, sizeof buffer, offset_)) > 0) {
        offset_ += n;
        partial_.append(buffer, static_cast<size_t>(n));
        size_t from = 0;
        for (size_t end; (end = partial_.find('\n', from)) != std::string::npos; from = end + 1) {
            line(partial_.substr(from, end - from));
        }
        partial_.erase(0, from);
    }
    ::close(fd);
}

LiveModel::LiveModel(std::string source, double frameCostMs)
    : source_(std::move(source)), frameCostMs_(frameCostMs) {}

void LiveModel::daemon_line(const std::string &line) {
    daemon_.line(line);
    for (const logs::TakenFrame &frame : daemon_.take_completed()) {
        take(frame);
    }
}

void LiveModel::take(const logs::TakenFrame &frame) {
    replay::update_overlay(overlay_, frame);
    // The n-th frame of the daemon's log is the n-th taken one of the frame
    // log, which the platform writes first.
    const long ordinal = framesCompleted_++;
    const long oldest = framesTaken_ - static_cast<long>(takenSources_.size());
    hasAnalysedSource_ = frame.framingRan && ordinal >= oldest && ordinal < framesTaken_;
    if (hasAnalysedSource_) {
        analysedSource_ = takenSources_[static_cast<size_t>(ordinal - oldest)];
    }
    if (frame.framingRan) {
        ++framesAnalysed_;
        if (frame.allMs >= 0) {
            recentAllMs_.push_back(frame.allMs);
            if (recentAllMs_.size() > kRateFrames) {
                recentAllMs_.pop_front();
            }
        }
    }
    if (frame.moved || frame.fullViewReset || frame.stopFullView) {
        decisionFrame_ = frame.frameNumber;
        decisionText_ = frame.moved           ? frame.decisionTrace
                        : frame.fullViewReset ? "full view: no face"
                                              : "full view: stopped";
    }
}

void LiveModel::frame_line(const std::string &line) {
    logs::FrameLogEntry entry;
    if (logs::parse_frame_line(line, &entry) && entry.taken) {
        ++framesTaken_;
        takenSources_.push_back(entry.sourceIndex);
        if (takenSources_.size() > kRememberedFrames) {
            takenSources_.pop_front();
        }
    }
}

bool LiveModel::analysed_source(uint64_t *sourceIndex) const {
    *sourceIndex = analysedSource_;
    return hasAnalysedSource_;
}

void LiveModel::sim_line(const std::string &line) {
    logs::SimLog log;
    logs::parse_sim_line(line, &log);
    if (!log.states.empty()) {
        camera_ = log.states.back();
    }
}

void LiveModel::command_sent(const std::string &command) {
    pendingCommand_ = command;
    modeAtSend_ = daemon_.mode();
}

void LiveModel::daemon_exited(int status) {
    exited_ = true;
    exitStatus_ = status;
}

void LiveModel::sample(double nowS) {
    TimelineSample s;
    s.t = nowS;
    if (overlay_.hasFraming) {
        s.panCommanded = overlay_.pan;
        s.tiltCommanded = overlay_.tilt;
        s.zoomCommanded = overlay_.zoom;
    }
    s.pan = camera_.pan;
    s.tilt = camera_.tilt;
    s.width = camera_.width;
    s.faces = static_cast<int>(overlay_.faces.size());
    timeline_.push_back(s);
    while (!timeline_.empty() && timeline_.front().t < nowS - kTimelineSeconds) {
        timeline_.pop_front();
    }
}

std::string LiveModel::status_json() const {
    nlohmann::ordered_json j;
    j["source"] = source_;
    j["pace"] = "realtime";
    j["frame_cost_ms"] = frameCostMs_;
    j["frames_taken"] = framesTaken_;
    j["frames_analysed"] = framesAnalysed_;
    double allMs = 0;
    for (double ms : recentAllMs_) {
        allMs += ms;
    }
    j["analysed_fps"] =
        recentAllMs_.empty()
            ? nlohmann::ordered_json()
            : nlohmann::ordered_json(printf_rounded(logs::analysed_fps_of(recentAllMs_.size(), allMs), 2));
    j["faces"] = overlay_.faces.size();
    // The daemon reports its command every pass; until it has since a send,
    // the command sent is the one in force.
    const logs::Mode mode = daemon_.mode();
    j["command"] = !pendingCommand_.empty() && mode == modeAtSend_ && !exited_ ? pendingCommand_
                   : mode == logs::Mode::Unknown                               ? std::string("stop")
                                                                               : logs::mode_name(mode);
    j["camera"] = {{"pan", printf_rounded(camera_.pan, 1)},
                   {"tilt", printf_rounded(camera_.tilt, 1)},
                   {"width", printf_rounded(camera_.width, 1)},
                   {"moving", camera_.moving}};
    if (overlay_.hasFraming) {
        j["last_decision"] = {{"frame", decisionFrame_},
                              {"pan", overlay_.pan},
                              {"tilt", overlay_.tilt},
                              {"zoom", overlay_.zoom},
                              {"text", decisionText_}};
    } else {
        j["last_decision"] = nullptr;
    }
    j["daemon"] = exited_ ? "exited " + std::to_string(exitStatus_) : std::string("running");
    return j.dump();
}

std::string LiveModel::timeline_json(double nowS) const {
    nlohmann::ordered_json samples = nlohmann::ordered_json::array();
    for (const TimelineSample &s : timeline_) {
        samples.push_back({{"t", printf_rounded(s.t, 2)},
                           {"pan_cmd", s.panCommanded},
                           {"tilt_cmd", s.tiltCommanded},
                           {"zoom_cmd", s.zoomCommanded},
                           {"pan", printf_rounded(s.pan, 1)},
                           {"tilt", printf_rounded(s.tilt, 1)},
                           {"width", printf_rounded(s.width, 1)},
                           {"faces", s.faces}});
    }
    return nlohmann::ordered_json{{"now_s", printf_rounded(nowS, 2)}, {"samples", samples}}.dump();
}

}  // namespace live
