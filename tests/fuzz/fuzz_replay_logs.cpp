// facedet_replay's readers of the logs it collects: the daemon's output, the
// platform's frame log, camera_sim's JSON lines and gamma_peer's answers.
#include <cstddef>
#include <cstdint>
#include <string>

#include "daemon_log.h"
#include "run_logs.h"

using namespace logs;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string text(reinterpret_cast<const char *>(data + 1), size - 1);
    switch (data[0] % 4) {
        case 0:
            parse_daemon_log(text, text);
            break;
        case 1:
            parse_frame_log(text);
            break;
        case 2: {
            SimLog log = parse_sim_log(text);
            sim_state_at(log.states, 1000);
            break;
        }
        default:
            parse_gamma_answers(text);
    }
    return 0;
}
