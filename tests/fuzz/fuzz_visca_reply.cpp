// Replies of the camera process, as the feature receive thread hands them on.
#include <cstddef>
#include <cstdint>

#include "visca/visca.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // The receive thread passes its 256-byte buffer with the length cut to 8 bits.
    uint8_t buffer[256] = {};
    const size_t n = size < sizeof buffer ? size : sizeof buffer;
    for (size_t i = 0; i < n; ++i) {
        buffer[i] = data[i];
    }
    g_receiveFlag = 0;
    VISCA_Command_Receive(buffer, static_cast<uint8_t>(size));
    VISCA_Command_Receive(buffer, static_cast<uint8_t>(size));  // a second reply is dropped
    return 0;
}
