/*
 * The camera side of the VISCA link, as pure functions: parsing the packets of
 * the daemon's command table and building the camera's replies.
 */
#ifndef CAMERA_SIM_PROTOCOL_H
#define CAMERA_SIM_PROTOCOL_H

#include <cstdint>
#include <string>
#include <vector>

// One command of the table, with the values it carries.
struct SimCommand {
    int id = -1;                // table id 0..18
    const char *name = "";      // for the log
    bool inquiry = false;       // answered with data instead of ack and completion
    int32_t position = 0;       // id 0: zoom position (0..65535)
    int32_t pan = 0;            // id 1: signed 16 bits
    int32_t tilt = 0;           // id 1: signed 16 bits
    int32_t panSpeed = 0;       // ids 1, 4
    int32_t tiltSpeed = 0;      // ids 1, 4
    int32_t panDirection = 0;   // id 4: 1 left, 2 right, 3 stop
    int32_t tiltDirection = 0;  // id 4: 1 up, 2 down, 3 stop
    int32_t value = 0;          // ids 5-7 memory number, 13, 14, 18 the data byte
};

// Parses one datagram. On failure returns false and names the reason in
// `*reason` ("too short", "too long", "wrong address byte", "no terminator",
// "terminator inside", "bad nibble", "wrong length", "unknown command").
bool parse_sim_command(const uint8_t *packet, int length, SimCommand *command, const char **reason);

using Bytes = std::vector<uint8_t>;

Bytes reply_ack();
Bytes reply_completion();
Bytes reply_syntax_error();
// 90 50 0p 0q 0r 0s FF
Bytes reply_zoom_position(int32_t position);
// 90 50 0w 0w 0w 0w 0z 0z 0z 0z FF, each 16-bit two's complement
Bytes reply_pan_tilt_position(int32_t pan, int32_t tilt);
// 90 50 pp FF
Bytes reply_one_byte(uint8_t value);
// 90 50 0A vv FF
Bytes reply_0a_byte(uint8_t value);
// 12 bytes; bytes 5, 6 and 7 are packed decimal: major, minor, patch
Bytes reply_version(int major, int minor, int patch);

// "81 01 04 47 ff": lower-case hex, one blank between bytes.
std::string hex_bytes(const uint8_t *bytes, int length);

#endif
