// Replies of the camera process, decoded into up to three values.
#include "visca/visca_codec.h"

uint16_t visca_get_nibbles(const uint8_t in[4]) {
    const uint32_t value =
        in[0] * 0x1000u + (in[1] & 0x0Fu) * 0x100u + (in[2] & 0x0Fu) * 0x10u + (in[3] & 0x0Fu);
    return static_cast<uint16_t>(value);
}

namespace {

int32_t packed_decimal(uint8_t byte) {
    return (byte >> 4) * 10 + (byte & 0x0F);
}

}  // namespace

int decode_visca_reply(const uint8_t *packet, int length, ViscaReply *reply) {
    *reply = ViscaReply();
    switch (length) {
        case 4:
            if (packet[1] != 0x50) {
                return 0;
            }
            reply->value[0] = packet[2];
            reply->count = 1;
            break;
        case 5:
            if (packet[2] != 0x0A) {
                return 0;
            }
            reply->value[0] = packet[3];
            reply->count = 1;
            break;
        case 7:
            reply->value[0] = visca_get_nibbles(packet + 2);
            reply->count = 1;
            break;
        case 11:
            // Two's complement in 16 bits: left of and below the centre are negative.
            reply->value[0] = static_cast<int16_t>(visca_get_nibbles(packet + 2));
            reply->value[1] = static_cast<int16_t>(visca_get_nibbles(packet + 6));
            reply->count = 2;
            break;
        case 12:
            reply->value[0] = packed_decimal(packet[5]);
            reply->value[1] = packed_decimal(packet[6]);
            reply->value[2] = packed_decimal(packet[7]);
            reply->count = 3;
            break;
        default:
            return 0;
    }
    return reply->count;
}
