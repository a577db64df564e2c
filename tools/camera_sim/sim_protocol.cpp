// Packet parsing and replies of the simulated camera.
#include "sim_protocol.h"

#include <cstdio>

#include "visca/visca_codec.h"

namespace {

// Pattern bytes: 0x00..0xFF must match, kAny takes any data byte, kNibble a
// byte whose high nibble is 0.
constexpr int kAny = -1;
constexpr int kNibble = -2;

struct Form {
    int id;
    const char *name;
    bool inquiry;
    std::vector<int> bytes;
};

const std::vector<Form> &forms() {
    static const std::vector<Form> table = {
        {0, "zoom_absolute", false, {0x81, 0x01, 0x04, 0x47, kNibble, kNibble, kNibble, kNibble, 0xFF}},
        {1,
         "pan_tilt_absolute",
         false,
         {0x81, 0x01, 0x44, 0x02, kAny, kAny, kNibble, kNibble, kNibble, kNibble, kNibble, kNibble, kNibble,
          kNibble, 0xFF}},
        {2, "zoom_inquiry", true, {0x81, 0x09, 0x04, 0x47, 0xFF}},
        {3, "pan_tilt_inquiry", true, {0x81, 0x09, 0x06, 0x12, 0xFF}},
        {4, "pan_tilt_drive", false, {0x81, 0x01, 0x06, 0x01, kAny, kAny, kAny, kAny, 0xFF}},
        {5, "memory_reset", false, {0x81, 0x01, 0x04, 0x3F, 0x00, kAny, 0xFF}},
        {6, "memory_set", false, {0x81, 0x01, 0x04, 0x3F, 0x01, kAny, 0xFF}},
        {7, "memory_recall", false, {0x81, 0x01, 0x04, 0x3F, 0x02, kAny, 0xFF}},
        {8, "focus_auto", false, {0x81, 0x01, 0x04, 0x38, 0x02, 0xFF}},
        {9, "focus_manual", false, {0x81, 0x01, 0x04, 0x38, 0x03, 0xFF}},
        {10, "version_inquiry", true, {0x81, 0x09, 0x00, 0x06, 0xFF}},
        {11, "motion_inquiry", true, {0x81, 0x09, 0x06, 0x23, 0xFF}},
        {12, "white_balance_inquiry", true, {0x81, 0x09, 0x0A, 0x00, 0xFF}},
        {13, "command_a9", false, {0x81, 0x01, 0x04, 0xA9, kAny, 0xFF}},
        {14, "white_balance_mode", false, {0x81, 0x01, 0x04, 0x35, kAny, 0xFF}},
        {15, "command_10_05", false, {0x81, 0x01, 0x04, 0x10, 0x05, 0xFF}},
        {16, "command_0b_0c_03", false, {0x81, 0x0A, 0x0B, 0x0C, 0x03, 0xFF}},
        {17, "command_0b_0c_02", false, {0x81, 0x0A, 0x0B, 0x0C, 0x02, 0xFF}},
        {18, "zoom_variable", false, {0x81, 0x01, 0x04, 0x07, kAny, 0xFF}},
    };
    return table;
}

// 0: matches, 1: the fixed bytes before the data differ, 2: a nibble byte is out of range.
int match(const Form &form, const uint8_t *packet) {
    for (size_t i = 0; i < form.bytes.size(); ++i) {
        const int want = form.bytes[i];
        if (want == kNibble) {
            if (packet[i] > 0x0F) {
                return 2;
            }
        } else if (want != kAny && packet[i] != want) {
            return 1;
        }
    }
    return 0;
}

// Whether the packet starts like this form: the fixed bytes before its first
// data byte (all but the terminator when it has none). A packet that does,
// but is not as long as the form, has the wrong length.
bool same_header(const Form &form, const uint8_t *packet, int length) {
    size_t header = 0;
    while (header + 1 < form.bytes.size() && form.bytes[header] >= 0) {
        ++header;
    }
    if (static_cast<size_t>(length) <= header) {
        return false;
    }
    for (size_t i = 0; i < header; ++i) {
        if (packet[i] != form.bytes[i]) {
            return false;
        }
    }
    return true;
}

void fill_values(const uint8_t *packet, SimCommand *command) {
    switch (command->id) {
        case 0:
            command->position = visca_get_nibbles(packet + 4);
            break;
        case 1:
            command->panSpeed = packet[4];
            command->tiltSpeed = packet[5];
            command->pan = static_cast<int16_t>(visca_get_nibbles(packet + 6));
            command->tilt = static_cast<int16_t>(visca_get_nibbles(packet + 10));
            break;
        case 4:
            command->panSpeed = packet[4];
            command->tiltSpeed = packet[5];
            command->panDirection = packet[6];
            command->tiltDirection = packet[7];
            break;
        case 5:
        case 6:
        case 7:
            command->value = packet[5];
            break;
        case 13:
        case 14:
        case 18:
            command->value = packet[4];
            break;
        default:
            break;
    }
}

}  // namespace

bool parse_sim_command(const uint8_t *packet, int length, SimCommand *command, const char **reason) {
    *command = SimCommand();
    if (length < 3) {
        *reason = "too short";
        return false;
    }
    if (length > kViscaMaxPacket) {
        *reason = "too long";
        return false;
    }
    if (packet[0] != 0x81) {
        *reason = "wrong address byte";
        return false;
    }
    if (packet[length - 1] != 0xFF) {
        *reason = "no terminator";
        return false;
    }
    for (int i = 1; i < length - 1; ++i) {
        if (packet[i] == 0xFF) {
            *reason = "terminator inside";
            return false;
        }
    }
    const char *why = "unknown command";
    for (const Form &form : forms()) {
        if (static_cast<size_t>(length) != form.bytes.size()) {
            if (same_header(form, packet, length)) {
                why = "wrong length";
            }
            continue;
        }
        const int result = match(form, packet);
        if (result == 0) {
            command->id = form.id;
            command->name = form.name;
            command->inquiry = form.inquiry;
            fill_values(packet, command);
            return true;
        }
        if (result == 2) {
            why = "bad nibble";
        }
    }
    *reason = why;
    return false;
}

Bytes reply_ack() {
    return {0x90, 0x41, 0xFF};
}
Bytes reply_completion() {
    return {0x90, 0x51, 0xFF};
}
Bytes reply_syntax_error() {
    return {0x90, 0x60, 0x02, 0xFF};
}

Bytes reply_zoom_position(int32_t position) {
    Bytes reply = {0x90, 0x50, 0, 0, 0, 0, 0xFF};
    visca_put_nibbles(position, reply.data() + 2);
    return reply;
}

Bytes reply_pan_tilt_position(int32_t pan, int32_t tilt) {
    Bytes reply = {0x90, 0x50, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF};
    visca_put_nibbles(pan, reply.data() + 2);
    visca_put_nibbles(tilt, reply.data() + 6);
    return reply;
}

Bytes reply_one_byte(uint8_t value) {
    return {0x90, 0x50, value, 0xFF};
}

Bytes reply_0a_byte(uint8_t value) {
    return {0x90, 0x50, 0x0A, value, 0xFF};
}

Bytes reply_version(int major, int minor, int patch) {
    auto packed = [](int n) { return static_cast<uint8_t>(((n / 10) % 10) << 4 | (n % 10)); };
    return {0x90,          0x50,          0x00, 0x00, 0x00, packed(major),
            packed(minor), packed(patch), 0x00, 0x00, 0x00, 0xFF};
}

std::string hex_bytes(const uint8_t *bytes, int length) {
    std::string text;
    char two[4];
    for (int i = 0; i < length; ++i) {
        snprintf(two, sizeof two, "%02x", bytes[i]);
        if (i > 0) {
            text += ' ';
        }
        text += two;
    }
    return text;
}
