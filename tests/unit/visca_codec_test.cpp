// VISCA without sockets: the command table, the speed bands and reply decoding,
// and the simulated camera moving each axis at its own rate toward the target
// the daemon's packets give it (its parsing and replies: end to end).
#include <climits>
#include <cstdint>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "sim_protocol.h"
#include "sim_ptz.h"
#include "visca/visca.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes encode(int id, std::vector<int32_t> a) {
    a.resize(4, 0);
    uint8_t out[kViscaMaxPacket];
    memset(out, 0xEE, sizeof out);
    return Bytes(out, out + visca_encode(id, a.data(), out));
}

// The daemon's packet for command `id`, parsed and applied.
void give(SimPtz &ptz, int id, int32_t a0 = 0, int32_t a1 = 0, int32_t a2 = 0, int32_t a3 = 0) {
    const int32_t args[4] = {a0, a1, a2, a3};
    uint8_t packet[kViscaMaxPacket];
    SimCommand command;
    const char *reason = "";
    ASSERT_TRUE(parse_sim_command(packet, visca_encode(id, args, packet), &command, &reason)) << reason;
    ptz.apply(command);
}

}  // namespace

TEST(ViscaEncode, EveryCommandOfTheTable) {
    const struct {
        int id;
        std::vector<int32_t> args;
        Bytes packet;
    } table[] = {
        // Commands without arguments ignore whatever the record holds.
        {2, {7, 8, 9, 10}, {0x81, 0x09, 0x04, 0x47, 0xFF}},
        {3, {7, 8, 9, 10}, {0x81, 0x09, 0x06, 0x12, 0xFF}},
        {8, {7}, {0x81, 0x01, 0x04, 0x38, 0x02, 0xFF}},
        {9, {7}, {0x81, 0x01, 0x04, 0x38, 0x03, 0xFF}},
        {10, {7}, {0x81, 0x09, 0x00, 0x06, 0xFF}},
        {11, {7}, {0x81, 0x09, 0x06, 0x23, 0xFF}},
        {12, {7}, {0x81, 0x09, 0x0A, 0x00, 0xFF}},
        {15, {7}, {0x81, 0x01, 0x04, 0x10, 0x05, 0xFF}},
        {16, {7}, {0x81, 0x0A, 0x0B, 0x0C, 0x03, 0xFF}},
        {17, {7}, {0x81, 0x0A, 0x0B, 0x0C, 0x02, 0xFF}},
        // Positions travel as four nibbles of the low 16 bits (two's complement).
        {0, {0x1234}, {0x81, 0x01, 0x04, 0x47, 0x01, 0x02, 0x03, 0x04, 0xFF}},
        {0, {0x7ABCD}, {0x81, 0x01, 0x04, 0x47, 0x0A, 0x0B, 0x0C, 0x0D, 0xFF}},
        {0, {-1}, {0x81, 0x01, 0x04, 0x47, 0x0F, 0x0F, 0x0F, 0x0F, 0xFF}},
        {1, {15, 10, 300, -120}, {0x81, 0x01, 0x44, 0x02, 0x0F, 0x0A, 0, 1, 2, 0xC, 0xF, 0xF, 8, 8, 0xFF}},
        {1, {0x10A, -2, -200, 0}, {0x81, 0x01, 0x44, 0x02, 0x0A, 0xFE, 0xF, 0xF, 3, 8, 0, 0, 0, 0, 0xFF}},
        // Data bytes are the low bytes of the arguments.
        {4, {0x103, 0x204, 1, 2}, {0x81, 0x01, 0x06, 0x01, 0x03, 0x04, 0x01, 0x02, 0xFF}},
        {5, {7}, {0x81, 0x01, 0x04, 0x3F, 0x00, 0x07, 0xFF}},
        {6, {7}, {0x81, 0x01, 0x04, 0x3F, 0x01, 0x07, 0xFF}},
        {7, {0x1234}, {0x81, 0x01, 0x04, 0x3F, 0x02, 0x34, 0xFF}},
        {13, {0x42}, {0x81, 0x01, 0x04, 0xA9, 0x42, 0xFF}},
        {14, {0x03}, {0x81, 0x01, 0x04, 0x35, 0x03, 0xFF}},
        // Zoom at variable speed: the speed's low nibble plus the whole direction
        // shifted, cut to a byte; direction 0 sends 00 whatever the speed.
        {18, {5, 2}, {0x81, 0x01, 0x04, 0x07, 0x25, 0xFF}},
        {18, {0x25, 3}, {0x81, 0x01, 0x04, 0x07, 0x35, 0xFF}},
        {18, {5, 0x13}, {0x81, 0x01, 0x04, 0x07, 0x35, 0xFF}},
        {18, {0, -1}, {0x81, 0x01, 0x04, 0x07, 0xF0, 0xFF}},
        {18, {7, 0}, {0x81, 0x01, 0x04, 0x07, 0x00, 0xFF}},
        {-1, {1}, {}},
        {19, {1}, {}},
        {INT_MIN, {1}, {}},
    };
    for (const auto &row : table) {
        EXPECT_EQ(encode(row.id, row.args), row.packet) << "id " << row.id << " arg " << row.args[0];
    }
    uint8_t out[kViscaMaxPacket] = {};
    EXPECT_EQ(visca_encode(1, nullptr, out), 15);  // null arguments read as zeros
    EXPECT_EQ(out[4], 0);
}

TEST(ViscaSpeed, BandsWithExclusiveBounds) {
    const int edges[][2] = {{0, 0},   {10, 0},  {11, 1},   {30, 1},    {31, 2},      {50, 2},
                            {51, 3},  {80, 3},  {81, 4},   {110, 4},   {111, 5},     {150, 5},
                            {151, 6}, {200, 6}, {201, 7},  {300, 7},   {301, 8},     {400, 8},
                            {401, 9}, {500, 9}, {501, 10}, {1920, 10}, {INT_MAX, 10}};
    for (const auto &edge : edges) {
        EXPECT_EQ(visca_speed_from_offset(edge[0]), edge[1]) << edge[0];
        EXPECT_EQ(visca_speed_from_offset(-edge[0]), edge[1]) << -edge[0];
    }
    EXPECT_EQ(visca_speed_from_offset(INT_MIN), 10);
}

TEST(ViscaDecode, RepliesByLength) {
    const struct {
        Bytes packet;
        std::vector<int32_t> values;
    } table[] = {
        {{0x90, 0x50, 0x07, 0xFF}, {7}},
        {{0x90, 0x41, 0x07, 0xFF}, {}},  // byte 1 is not 0x50
        {{0x90, 0x60, 0x02, 0xFF}, {}},  // a syntax error is no value
        {{0x90, 0x50, 0x0A, 0xC8, 0xFF}, {200}},
        {{0x90, 0x50, 0x0B, 0x01, 0xFF}, {}},   // byte 2 is not 0x0A
        {{0x90, 0x11, 0x0A, 0x01, 0xFF}, {1}},  // byte 1 is not looked at
        // Zoom: unsigned 16 bits; the high nibbles of bytes 3 to 5 dropped, byte 2 taken whole.
        {{0x90, 0x50, 0x01, 0xF2, 0xE3, 0xD4, 0xFF}, {0x1234}},
        {{0x90, 0x50, 0x1F, 0x00, 0x00, 0x00, 0xFF}, {0xF000}},
        {{0x90, 0x50, 0x0F, 0x0F, 0x0F, 0x0F, 0xFF}, {65535}},
        // Pan and tilt: signed 16 bits.
        {{0x90, 0x50, 0x0F, 0x0F, 0x03, 0x08, 0x00, 0x01, 0x02, 0x03, 0xFF}, {-200, 0x123}},
        {{0x90, 0x50, 0x07, 0x0F, 0x0F, 0x0F, 0x08, 0x00, 0x00, 0x00, 0xFF}, {32767, -32768}},
        {{0x90, 0x50, 0x30, 0xF0, 0xA1, 0x52, 0x1F, 0xFF, 0xFF, 0xFF, 0xFF}, {0x0012, -1}},
        // Twelve bytes: three packed decimals, digits above 9 unchecked (0xAF is 115).
        {{0x90, 0x50, 0xAA, 0xBB, 0xCC, 0x12, 0x34, 0x99, 0x00, 0x00, 0x00, 0xFF}, {12, 34, 99}},
        {{0x90, 0x50, 0, 0, 0, 0xAF, 0, 0, 0, 0, 0, 0xFF}, {115, 0, 0}},
    };
    for (const auto &row : table) {
        ViscaReply reply;
        const int count = decode_visca_reply(row.packet.data(), static_cast<int>(row.packet.size()), &reply);
        EXPECT_EQ(count, reply.count);
        EXPECT_EQ(std::vector<int32_t>(reply.value, reply.value + reply.count), row.values)
            << row.packet.size() << " bytes";
    }
}

TEST(CameraSimMotion, AxesMoveAtTheirOwnRatesTowardTheTarget) {
    EXPECT_EQ(pan_tilt_rate(0) + pan_tilt_rate(15), 30.0 + 900.0);
    EXPECT_EQ(width_for_zoom_position(0) + width_for_zoom_position(0xFFFF), 2 * 1920.0);  // the full width
    EXPECT_EQ(width_for_zoom_position(50), 192.0);
    SimPtz ptz;
    EXPECT_EQ(ptz.zoom().position, 1920.0);
    give(ptz, 1, 5, 2, 300, -120);  // 300 px/s and 120 px/s
    give(ptz, 0, 960);
    EXPECT_TRUE(ptz.moving());
    ptz.advance(0.5);
    EXPECT_DOUBLE_EQ(ptz.pan().position, 150.0);
    EXPECT_DOUBLE_EQ(ptz.tilt().position, -60.0);
    EXPECT_DOUBLE_EQ(ptz.zoom().position, 1920.0 - 480.0);
    ptz.advance(0.5);
    EXPECT_DOUBLE_EQ(ptz.pan().position, 300.0);
    EXPECT_DOUBLE_EQ(ptz.tilt().position, -120.0);
    EXPECT_DOUBLE_EQ(ptz.zoom().position, 960.0);  // never past the target
    EXPECT_FALSE(ptz.moving());

    // A new target mid-way turns the axis around from where it is.
    give(ptz, 1, 0, 0, 200, -120);
    ptz.advance(1.0);
    EXPECT_DOUBLE_EQ(ptz.pan().position, 270.0);
    // Targets outside the view are held at its edge.
    give(ptz, 1, 24, 24, -2000, 2000);
    ptz.advance(10);
    EXPECT_DOUBLE_EQ(ptz.pan().position, -960.0);
    EXPECT_DOUBLE_EQ(ptz.tilt().position, 540.0);
}
