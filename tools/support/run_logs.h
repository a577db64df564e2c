// Reading the logs of a run beside the daemon's console: the host
// platform's frame log, camera_sim's JSON lines and gamma_peer's answers,
// and the spread of a series of figures.
#ifndef FACEDET_TOOLS_RUN_LOGS_H
#define FACEDET_TOOLS_RUN_LOGS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace logs {

struct FrameLogEntry {
    uint64_t sourceIndex = 0;
    uint64_t ptsUs = 0;
    bool taken = false;
    int chn = 0, port = 0;
};
// Whole lines only: a line cut by a killed process is left out.
std::vector<FrameLogEntry> parse_frame_log(const std::string &text);
// One line of it; false when it is not a frame's line.
bool parse_frame_line(const std::string &line, FrameLogEntry *entry);

struct SimState {
    int64_t tUs = 0;
    double pan = 0, tilt = 0, width = 1920, height = 1080;
    double targetPan = 0, targetTilt = 0, targetWidth = 1920;
    bool moving = false;
};
struct SimRx {
    int64_t tUs = 0;
    std::string name;  // empty for malformed packets
    bool error = false;
    std::vector<uint8_t> bytes;  // the packet as received
};
struct SimLog {
    std::vector<SimState> states;
    std::vector<SimRx> rx;
    bool started = false;
    std::string stopReason;  // empty when the log has no stop line
};
SimLog parse_sim_log(const std::string &text);
// One line of it, added to *log; other events and broken lines are skipped.
void parse_sim_line(const std::string &line, SimLog *log);
// The camera's state at `tUs`: the last sample at or before it (the full
// view before the first), moved on toward the next one in proportion to the
// time while the head moves.
SimState sim_state_at(const std::vector<SimState> &states, int64_t tUs);

struct GammaAnswer {
    int answer = 0, valid = 0, mean = 0, stdDev = 0, p50 = 0, strength = 0;
    bool accepted = false;
};
// gamma_peer's JSON lines (--jsonl), one per answer; broken lines are skipped.
std::vector<GammaAnswer> parse_gamma_answers(const std::string &text);

// Median and 95th percentile (nearest rank) of the values >= 0.
struct Spread {
    int count = 0;
    double median = 0, p95 = 0, max = 0;
};
Spread spread_of(std::vector<double> values);

}  // namespace logs

#endif
