// Control datagrams of any length and content, as the control thread takes them.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "net_communication/net_communication.h"
#include "net_communication/net_state.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    uint8_t buffer[128];
    memset(buffer, 0, sizeof buffer);
    memcpy(buffer, data, size < sizeof buffer ? size : sizeof buffer);
    MsgBuf[0] = 0;
    MsgBuf[1] = 0;
    const ControlTake taken = control_take_datagram(buffer, sizeof buffer, static_cast<ssize_t>(size));
    const bool fits = size > 0 && size <= sizeof buffer;
    if ((taken == ControlTake::Taken) != fits ||
        (fits && (MsgBuf[0] != buffer[0] || MsgBuf[1] != buffer[1]))) {
        abort();
    }
    return 0;
}
