// The command table: every packet the daemon can send to the camera process.
#include <cstring>

#include "visca/visca_codec.h"

void visca_put_nibbles(int32_t value, uint8_t out[4]) {
    const uint32_t bits = static_cast<uint32_t>(value) & 0xFFFFu;
    out[0] = static_cast<uint8_t>((bits >> 12) & 0x0F);
    out[1] = static_cast<uint8_t>((bits >> 8) & 0x0F);
    out[2] = static_cast<uint8_t>((bits >> 4) & 0x0F);
    out[3] = static_cast<uint8_t>(bits & 0x0F);
}

namespace {

uint8_t low_byte(int32_t value) {
    return static_cast<uint8_t>(static_cast<uint32_t>(value) & 0xFFu);
}

template <int N>
int put(uint8_t *out, const uint8_t (&bytes)[N]) {
    memcpy(out, bytes, N);
    return N;
}

}  // namespace

int visca_encode(int id, const int32_t args[4], uint8_t out[kViscaMaxPacket]) {
    static const int32_t kNoArgs[4] = {0, 0, 0, 0};
    const int32_t *a = args ? args : kNoArgs;
    switch (id) {
        case 0: {
            uint8_t packet[9] = {0x81, 0x01, 0x04, 0x47, 0, 0, 0, 0, 0xFF};
            visca_put_nibbles(a[0], packet + 4);
            return put(out, packet);
        }
        case 1: {
            // 44, not the 06 of the usual absolute pan/tilt command: the camera
            // process expects this form.
            uint8_t packet[15] = {0x81, 0x01, 0x44, 0x02, low_byte(a[0]), low_byte(a[1]), 0, 0, 0, 0, 0,
                                  0,    0,    0,    0xFF};
            visca_put_nibbles(a[2], packet + 6);
            visca_put_nibbles(a[3], packet + 10);
            return put(out, packet);
        }
        case 2:
            return put(out, {0x81, 0x09, 0x04, 0x47, 0xFF});
        case 3:
            return put(out, {0x81, 0x09, 0x06, 0x12, 0xFF});
        case 4:
            return put(out, {0x81, 0x01, 0x06, 0x01, low_byte(a[0]), low_byte(a[1]), low_byte(a[2]),
                             low_byte(a[3]), 0xFF});
        case 5:
            return put(out, {0x81, 0x01, 0x04, 0x3F, 0x00, low_byte(a[0]), 0xFF});
        case 6:
            return put(out, {0x81, 0x01, 0x04, 0x3F, 0x01, low_byte(a[0]), 0xFF});
        case 7:
            return put(out, {0x81, 0x01, 0x04, 0x3F, 0x02, low_byte(a[0]), 0xFF});
        case 8:
            return put(out, {0x81, 0x01, 0x04, 0x38, 0x02, 0xFF});
        case 9:
            return put(out, {0x81, 0x01, 0x04, 0x38, 0x03, 0xFF});
        case 10:
            return put(out, {0x81, 0x09, 0x00, 0x06, 0xFF});
        case 11:
            return put(out, {0x81, 0x09, 0x06, 0x23, 0xFF});
        case 12:
            return put(out, {0x81, 0x09, 0x0A, 0x00, 0xFF});
        case 13:
            return put(out, {0x81, 0x01, 0x04, 0xA9, low_byte(a[0]), 0xFF});
        case 14:
            return put(out, {0x81, 0x01, 0x04, 0x35, low_byte(a[0]), 0xFF});
        case 15:
            return put(out, {0x81, 0x01, 0x04, 0x10, 0x05, 0xFF});
        case 16:
            return put(out, {0x81, 0x0A, 0x0B, 0x0C, 0x03, 0xFF});
        case 17:
            return put(out, {0x81, 0x0A, 0x0B, 0x0C, 0x02, 0xFF});
        case 18: {
            // Speed in the low nibble, direction above it; direction 0 stops
            // whatever the speed.
            const uint8_t xy =
                a[1] != 0 ? static_cast<uint8_t>((a[0] & 0x0F) + (static_cast<uint32_t>(a[1]) << 4)) : 0x00;
            return put(out, {0x81, 0x01, 0x04, 0x07, xy, 0xFF});
        }
        default:
            return 0;
    }
}
