/*
 * How the host platform is set up: which frames feed VPE channel 0, how they
 * are paced, where the frame log goes and which faults to inject.
 *
 * The daemon cannot pass options to its platform, so MI_SYS_Init reads them
 * from the environment (FACEDET_SOURCE, FACEDET_PACE, FACEDET_FRAME_COST_MS,
 * FACEDET_LOOP, FACEDET_EXIT_AT_END, FACEDET_FRAME_LOG, FACEDET_FRAME_TAP,
 * FACEDET_FAULTS). Parsing is kept
 * apart from the pipeline so that it can be tested on its own.
 */
#ifndef FACEDET_HOST_CONFIG_H
#define FACEDET_HOST_CONFIG_H

#include <cstdint>
#include <string>

#include "mi_common.h"

namespace host {

// Faults injected into the MI calls and the frame source; all off by default.
struct Faults {
    uint64_t getbufFailAt = 0;     // the N-th MI_SYS_ChnOutputPortGetBuf call (1-based) fails; 0: never
    uint64_t getbufFailEvery = 0;  // every N-th MI_SYS_ChnOutputPortGetBuf call fails; 0: never
    uint64_t putbufFailEvery = 0;  // every N-th MI_SYS_ChnOutputPortPutBuf call reports a failure; 0: never
    bool getfdFail = false;        // MI_SYS_GetFd always fails
    bool portmodeFail = false;     // the first MI_VPE_GetPortMode call fails with portmodeFailCode
    MI_S32 portmodeFailCode = 0;
    double stallSeconds = 0.0;  // the source pauses this long before producing stallAtFrame; 0: no stall
    uint64_t stallAtFrame = 0;  // source frame index (counting across loops)
};

// Realtime: frames come at the source's own rate whether or not they are
// taken, as from a camera. Lockstep: the next frame is queued only when the
// consumer has given the previous one back, so runs are deterministic.
// Camera: deterministic like lockstep, but each frame taken costs the
// consumer the camera's time, and frames that come meanwhile pass through
// the port's queue as on the camera (pace_clock.h). Recorded: a flight
// recording's frames, every one taken, one at a time as in lockstep, each
// stamped with the time the camera took it; the control datagrams recorded
// between two frames reach the daemon before the second is handed out.
enum class Pace { Realtime, Lockstep, Camera, Recorded };

// The camera's time per analysed frame when FACEDET_FRAME_COST_MS is not set:
// one Cortex-A7 at 1.0 GHz (docs/BENCHMARKS.md, "On the camera").
constexpr double kDefaultFrameCostMs = 189.0;
// A larger cost is more likely a unit mistake than a camera.
constexpr double kMaxFrameCostMs = 10000.0;

struct Config {
    std::string source;  // raw NV12 file, image, video or /dev/videoN; empty: channel 0 has no source
    Pace pace = Pace::Realtime;
    // The camera's milliseconds per analysed frame (FACEDET_FRAME_COST_MS):
    // camera pace charges it, realtime holds frames back by it when set.
    bool hasFrameCost = false;
    double frameCostMs = kDefaultFrameCostMs;
    bool loop = false;         // start the source again at its end
    bool exitAtEnd = false;    // raise SIGTERM once the last frame has been consumed
    std::string frameLogPath;  // rewritten by each MI_SYS_Init; empty: no log
    std::string frameTapPath;  // FACEDET_FRAME_TAP: the newest frame for watchers (frame_tap.h); empty: none
    // FACEDET_DELIVERED_FRAMES: every delivered frame of the first port,
    // appended as raw NV12, so that a tool showing them need not decode the
    // source a second time; empty: none.
    std::string deliveredPath;
    // Lockstep and camera: the source time is published here for other
    // processes ($FACEDET_RUNTIME_DIR/source_clock); empty: not published.
    std::string clockPath;
    // Recorded pace: the daemon's control socket, where the recording's
    // control datagrams are delivered ($FACEDET_RUNTIME_DIR/sin_addr.socket).
    std::string controlPath;
    Faults faults;
};

// Parses a FACEDET_FAULTS value: comma-separated entries such as
// "getbuf_fail=3,stall=0.5@10". An empty text means no faults. On an unknown
// name or a malformed value returns false with *error naming the entry.
bool parse_faults(const std::string &text, Faults *out, std::string *error);

// Parses a FACEDET_PACE value ("realtime", "lockstep", "camera", "recorded";
// empty: realtime).
bool parse_pace(const std::string &text, Pace *out, std::string *error);

// Parses a FACEDET_FRAME_COST_MS value: milliseconds above 0 and up to
// kMaxFrameCostMs, decimals allowed.
bool parse_frame_cost(const std::string &text, double *ms, std::string *error);

// Builds a Config from the FACEDET_* environment variables. Returns false
// with a one-line *error for a value that cannot be used; an unset source is
// not an error here (the pipeline reports it). A recording as the source
// plays at the recorded pace unless FACEDET_PACE says otherwise; the recorded
// pace with any other source is an error.
bool config_from_env(Config *out, std::string *error);

}  // namespace host

#endif
