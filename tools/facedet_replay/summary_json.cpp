// summary.json: the figures of a replay as one JSON object, keys in a fixed
// order. Each figure keeps the decimals it has always had (printf_rounded);
// the document keeps its layout, one top-level key a line with what is under
// it on that line, so that a person can read it and grep it.
#include <optional>

#include <nlohmann/json.hpp>

#include "json_number.h"
#include "replay_report.h"

namespace replay {

namespace {

using Json = nlohmann::ordered_json;

// Text that is not UTF-8 (a strange file name) is replaced, not refused.
std::string dump(const Json &value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// A value on one line: ", " between members and ": " after keys, except in
// the objects of `compactMembers`, which have always been written without blanks.
std::string one_line(const Json &value, bool compactMembers = false) {
    std::string text;
    if (value.is_object()) {
        for (const auto &[key, member] : value.items()) {
            text += (text.empty() ? "{" : ", ") + dump(key) + ": " +
                    (compactMembers ? dump(member) : one_line(member));
        }
        return text.empty() ? "{}" : text + "}";
    }
    if (value.is_array()) {
        for (const Json &element : value) {
            text += (text.empty() ? "[" : ", ") + one_line(element);
        }
        return text.empty() ? "[]" : text + "]";
    }
    return dump(value);
}

Json number_or_null(double value, bool present, int decimals) {
    return present ? Json(printf_rounded(value, decimals)) : Json(nullptr);
}

Json spread(const Spread &s) {
    return {{"count", s.count},
            {"median_ms", printf_rounded(s.median, 1)},
            {"p95_ms", printf_rounded(s.p95, 1)},
            {"max_ms", printf_rounded(s.max, 1)}};
}

Json truth(const std::string &file, const FramingScore &t) {
    auto figure = [](const std::optional<double> &v) {
        return number_or_null(v.value_or(0), v.has_value(), 4);
    };
    return {{"file", file},
            {"frames_scored", t.framesScored},
            {"frames_with_person", t.framesWithPerson},
            {"face_in_view", figure(t.faceInView)},
            {"face_in_centre_third", figure(t.faceInCentreThird)},
            {"centre_offset_median", figure(t.centreOffsetMedian)},
            {"centre_offset_p95", figure(t.centreOffsetP95)},
            {"face_height_median", figure(t.faceHeightMedian)},
            {"face_height_p95", figure(t.faceHeightP95)},
            {"moves_per_minute", figure(t.movesPerMinute)},
            {"reversal_share", figure(t.reversalShare)},
            {"entry_to_frame_s", figure(t.entryToFrameS)},
            {"exit_to_full_view_s", figure(t.exitToFullViewS)},
            {"target_changes_per_minute", figure(t.targetChangesPerMinute)}};
}

Json packets(const std::vector<Packet> &list) {
    Json out = Json::array();
    for (const Packet &packet : list) {
        out.push_back(packet_hex(packet));
    }
    return out;
}

Json recording(const Summary &s) {
    return {{"file", s.recordingFile},
            {"frames", s.recordedFrames},
            {"records_cut", s.recordingCut},
            {"events_dropped", s.recordingDropped},
            {"reading", s.recordingSummary}};
}

Json camera_frame_time(const Spread &t) {
    return {{"count", t.count},
            {"median_ms", number_or_null(t.median, t.count > 0, 1)},
            {"p95_ms", number_or_null(t.p95, t.count > 0, 1)}};
}

Json prediction(const Prediction &p) {
    Json out = {{"frames", p.frames}, {"moves", p.moves}, {"identical", p.identical}};
    if (!p.identical) {
        Json faces = Json::array();
        for (const Box &b : p.pcFaces) {
            faces.push_back({b.x, b.y, b.w, b.h, printf_rounded(b.score, 3)});
        }
        out["first_difference"] = {{"frame", p.frame},
                                   {"seconds", printf_rounded(p.seconds, 3)},
                                   {"what", p.what},
                                   {"camera_packets", packets(p.camera)},
                                   {"pc_packets", packets(p.pc)},
                                   {"pc_faces", faces}};
    }
    return out;
}

}  // namespace

std::string summary_json(const Summary &s) {
    const RunInfo &r = s.run;
    Json answers = Json::array();
    for (const GammaAnswer &a : s.gamma) {
        answers.push_back({{"answer", a.answer},
                           {"valid", a.valid},
                           {"mean", a.mean},
                           {"std_dev", a.stdDev},
                           {"p50", a.p50},
                           {"accepted", a.accepted}});
    }
    Json doc = {
        {"complete", r.complete},
        {"reason", r.reason},
        {"source", r.source},
        {"pace", r.pace},
        {"frame_cost_ms", number_or_null(s.frameCostMs, s.frameCostMs >= 0, 1)},
        {"analysed_fps", number_or_null(s.analysedFps, s.analysedFps >= 0, 2)},
        {"engine", s.engine},
        {"model", s.model},
        {"seconds", printf_rounded(r.seconds, 1)},
        {"daemon_exit", r.daemonExit},
        {"wall_seconds", printf_rounded(r.wallSeconds, 2)},
        {"source_frames_failed", r.sourceFramesFailed},
        {"frames",
         {{"delivered", s.delivered},
          {"taken", s.taken},
          {"dropped", s.dropped},
          {"taken_in_daemon_log", s.takenInDaemonLog},
          {"analysed", s.analysed},
          {"auto_framing", s.framingFrames}}},
        {"duration_seconds", printf_rounded(s.durationSeconds, 3)},
        {"faces",
         {{"mean", printf_rounded(s.facesMean, 3)},
          {"max", s.facesMax},
          {"frames_with_faces", s.framesWithFaces},
          {"histogram", s.faceHistogram}}},
        {"no_face_found", s.framesWithFaces == 0},
        {"moves", s.moves},
        {"moves_per_minute", printf_rounded(s.movesPerMinute, 2)},
        {"first_move_seconds", number_or_null(s.firstMoveSeconds, s.firstMoveSeconds >= 0, 3)},
        {"full_view_resets", s.resets},
        {"stopped_full_views", s.stopFullViews},
        {"auto_framing",
         {{"run_frames", s.runFrames},
          {"stop_frames", s.stopFrames},
          {"off_passes", s.offPasses},
          {"switches", s.modeSwitches}}},
        {"stages",
         {{"get_frame", spread(s.getFrame)},
          {"autogamma", spread(s.autogamma)},
          {"invoke", spread(s.invoke)},
          {"strategies", spread(s.strategies)},
          {"all", spread(s.all)}}},
        {"camera",
         {{"packets", s.simPackets}, {"malformed", s.simBadPackets}, {"state_samples", s.simStates}}},
        {"gamma", {{"asked", r.gammaAsked}, {"status", r.gammaStatus}, {"answers", answers}}},
    };
    if (!s.truthFile.empty()) {
        doc["truth"] = truth(s.truthFile, s.truth);
    }
    if (!s.recordingFile.empty()) {
        doc["recording"] = recording(s);
    }
    if (!s.recordingFile.empty() || s.cameraLog) {
        doc["camera_frame_time"] = camera_frame_time(s.cameraFrameMs);
    }
    if (s.prediction.checked) {
        doc["prediction"] = prediction(s.prediction);
    }
    doc["daemon_log_cut"] = s.daemonLogCut;
    doc["notes"] = r.notes;

    std::string text = "{\n";
    for (const auto &[key, value] : doc.items()) {
        text += (text.size() > 2 ? ",\n  " : "  ") + dump(key) + ": " + one_line(value, key == "stages");
    }
    return text + "\n}\n";
}

}  // namespace replay
