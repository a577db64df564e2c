// camera_sim's parser of the daemon's packets, and what it logs of them.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "sim_protocol.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    SimCommand command;
    const char *reason = nullptr;
    const int length = static_cast<int>(size > 4096 ? 4096 : size);
    const bool ok = parse_sim_command(data, length, &command, &reason);
    if (ok == (reason != nullptr && *reason != '\0') || (ok && (command.id < 0 || command.id > 18))) {
        abort();
    }
    (void)hex_bytes(data, length);
    return 0;
}
