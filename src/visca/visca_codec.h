/*
 * VISCA packets between the daemon and the camera's control process, as pure
 * functions over byte buffers: the numbered command table the daemon sends,
 * and the replies it understands. No sockets, no globals.
 */
#ifndef FACEDET_VISCA_CODEC_H
#define FACEDET_VISCA_CODEC_H

#include <cstdint>

// Longest packet of the command table (pan/tilt to an absolute position).
constexpr int kViscaMaxPacket = 15;
// Ids of the command table run from 0 to this one.
constexpr int kViscaLastCommand = 18;

// Command ids used by name elsewhere.
enum ViscaCommandId : int {
    kViscaZoomAbsolute = 0,
    kViscaPanTiltAbsolute = 1,
    kViscaZoomInquiry = 2,
    kViscaPanTiltInquiry = 3,
    kViscaPanTiltDrive = 4,
    kViscaInquiry12 = 12,
    kViscaZoomVariable = 18,
};

// Builds the packet of command `id` from the argument record a0..a3 (null
// reads as zeros) into `out`, and returns its length. An id outside the table
// builds nothing and returns 0.
int visca_encode(int id, const int32_t args[4], uint8_t out[kViscaMaxPacket]);

// Writes the low 16 bits of `value` as four nibbles, most significant first,
// each in the low half of its own byte (0p 0q 0r 0s).
void visca_put_nibbles(int32_t value, uint8_t out[4]);

// What one reply carries: up to three values.
struct ViscaReply {
    int count = 0;  // 0 when the reply is ignored
    int32_t value[3] = {0, 0, 0};
};

// Decodes a reply of `length` bytes. Understood lengths:
//   4  byte 1 is 0x50: byte 2
//   5  byte 2 is 0x0A: byte 3
//   7  zoom position from bytes 2..5, 16 bits unsigned
//   11 pan from bytes 2..5 and tilt from bytes 6..9, each 16 bits signed
//   12 bytes 5, 6 and 7 as two packed decimal digits each
// Anything else is ignored. Returns the count of values.
int decode_visca_reply(const uint8_t *packet, int length, ViscaReply *reply);

// The 16-bit value of four position bytes: the first byte is taken whole (only
// its low nibble survives the cut to 16 bits), the other three by their low
// nibbles.
uint16_t visca_get_nibbles(const uint8_t in[4]);

#endif
