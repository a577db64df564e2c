// The VISCA command table, the speed bands and reply decoding, without sockets.
#include <climits>
#include <cstring>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "visca/visca.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes encode(int id, int32_t a0 = 0, int32_t a1 = 0, int32_t a2 = 0, int32_t a3 = 0) {
    const int32_t args[4] = {a0, a1, a2, a3};
    uint8_t out[kViscaMaxPacket];
    memset(out, 0xEE, sizeof out);
    const int length = visca_encode(id, args, out);
    return Bytes(out, out + length);
}

ViscaReply decode(const Bytes &packet) {
    ViscaReply reply;
    const int count = decode_visca_reply(packet.data(), static_cast<int>(packet.size()), &reply);
    EXPECT_EQ(count, reply.count);
    return reply;
}

}  // namespace

TEST(ViscaEncode, EveryCommandOfTheTable) {
    const struct {
        int id;
        Bytes packet;
    } table[] = {
        {2, {0x81, 0x09, 0x04, 0x47, 0xFF}},        {3, {0x81, 0x09, 0x06, 0x12, 0xFF}},
        {8, {0x81, 0x01, 0x04, 0x38, 0x02, 0xFF}},  {9, {0x81, 0x01, 0x04, 0x38, 0x03, 0xFF}},
        {10, {0x81, 0x09, 0x00, 0x06, 0xFF}},       {11, {0x81, 0x09, 0x06, 0x23, 0xFF}},
        {12, {0x81, 0x09, 0x0A, 0x00, 0xFF}},       {15, {0x81, 0x01, 0x04, 0x10, 0x05, 0xFF}},
        {16, {0x81, 0x0A, 0x0B, 0x0C, 0x03, 0xFF}}, {17, {0x81, 0x0A, 0x0B, 0x0C, 0x02, 0xFF}},
    };
    for (const auto &row : table) {
        // Commands without arguments ignore whatever the record holds.
        EXPECT_EQ(encode(row.id, 7, 8, 9, 10), row.packet) << "id " << row.id;
    }
    EXPECT_EQ(encode(0, 0x1234), (Bytes{0x81, 0x01, 0x04, 0x47, 0x01, 0x02, 0x03, 0x04, 0xFF}));
    EXPECT_EQ(encode(1, 15, 10, 300, -120), (Bytes{0x81, 0x01, 0x44, 0x02, 0x0F, 0x0A, 0x00, 0x01, 0x02, 0x0C,
                                                   0x0F, 0x0F, 0x08, 0x08, 0xFF}));
    EXPECT_EQ(encode(4, 3, 4, 1, 2), (Bytes{0x81, 0x01, 0x06, 0x01, 0x03, 0x04, 0x01, 0x02, 0xFF}));
    EXPECT_EQ(encode(5, 7), (Bytes{0x81, 0x01, 0x04, 0x3F, 0x00, 0x07, 0xFF}));
    EXPECT_EQ(encode(6, 7), (Bytes{0x81, 0x01, 0x04, 0x3F, 0x01, 0x07, 0xFF}));
    EXPECT_EQ(encode(7, 7), (Bytes{0x81, 0x01, 0x04, 0x3F, 0x02, 0x07, 0xFF}));
    EXPECT_EQ(encode(13, 0x42), (Bytes{0x81, 0x01, 0x04, 0xA9, 0x42, 0xFF}));
    EXPECT_EQ(encode(14, 0x03), (Bytes{0x81, 0x01, 0x04, 0x35, 0x03, 0xFF}));
    EXPECT_EQ(encode(18, 5, 2), (Bytes{0x81, 0x01, 0x04, 0x07, 0x25, 0xFF}));
}

TEST(ViscaEncode, PositionsTravelAsFourNibblesOfTheLow16Bits) {
    // Negative points are 16-bit two's complement: -200 is 0xFF38.
    EXPECT_EQ(encode(1, 15, 10, -200, 0), (Bytes{0x81, 0x01, 0x44, 0x02, 0x0F, 0x0A, 0x0F, 0x0F, 0x03, 0x08,
                                                 0x00, 0x00, 0x00, 0x00, 0xFF}));
    EXPECT_EQ(encode(0, 1920), (Bytes{0x81, 0x01, 0x04, 0x47, 0x00, 0x07, 0x08, 0x00, 0xFF}));
    // Bits above the low 16 are dropped.
    EXPECT_EQ(encode(0, 0x7ABCD), (Bytes{0x81, 0x01, 0x04, 0x47, 0x0A, 0x0B, 0x0C, 0x0D, 0xFF}));
    EXPECT_EQ(encode(0, -1), (Bytes{0x81, 0x01, 0x04, 0x47, 0x0F, 0x0F, 0x0F, 0x0F, 0xFF}));
}

TEST(ViscaEncode, DataBytesAreLowBytesOfTheArguments) {
    EXPECT_EQ(encode(1, 0x10A, -2, 0, 0)[4], 0x0A);
    EXPECT_EQ(encode(1, 0x10A, -2, 0, 0)[5], 0xFE);
    EXPECT_EQ(encode(4, 0x101, 0x202, 0x303, 0x404),
              (Bytes{0x81, 0x01, 0x06, 0x01, 0x01, 0x02, 0x03, 0x04, 0xFF}));
    EXPECT_EQ(encode(7, 0x1234)[5], 0x34);
}

TEST(ViscaEncode, ZoomAtVariableSpeedArithmetic) {
    // Direction 0 sends 00 whatever the speed.
    EXPECT_EQ(encode(18, 7, 0)[4], 0x00);
    // Only the speed's low nibble; the direction is shifted in whole and the
    // sum cut to a byte.
    EXPECT_EQ(encode(18, 0x25, 3)[4], 0x35);
    EXPECT_EQ(encode(18, 5, 0x13)[4], 0x35);
    EXPECT_EQ(encode(18, 0, -1)[4], 0xF0);
}

TEST(ViscaEncode, IdsOutsideTheTableBuildNothing) {
    for (int id : {-1, 19, 100, INT_MIN}) {
        EXPECT_TRUE(encode(id, 1, 2, 3, 4).empty()) << id;
    }
    uint8_t out[kViscaMaxPacket] = {};
    EXPECT_EQ(visca_encode(2, nullptr, out), 5);
    EXPECT_EQ(visca_encode(1, nullptr, out), 15);  // null arguments read as zeros
    EXPECT_EQ(out[4], 0);
}

TEST(ViscaSpeed, BandsWithExclusiveBounds) {
    const struct {
        int offset;
        int speed;
    } edges[] = {{0, 0},   {10, 0},  {11, 1},  {30, 1},  {31, 2},   {50, 2},    {51, 3},      {80, 3},
                 {81, 4},  {110, 4}, {111, 5}, {150, 5}, {151, 6},  {200, 6},   {201, 7},     {300, 7},
                 {301, 8}, {400, 8}, {401, 9}, {500, 9}, {501, 10}, {1920, 10}, {INT_MAX, 10}};
    for (const auto &edge : edges) {
        EXPECT_EQ(visca_speed_from_offset(edge.offset), edge.speed) << edge.offset;
        EXPECT_EQ(visca_speed_from_offset(-edge.offset), edge.speed) << -edge.offset;
    }
    EXPECT_EQ(visca_speed_from_offset(INT_MIN), 10);
}

TEST(ViscaDecode, OneByteReplies) {
    ViscaReply r = decode({0x90, 0x50, 0x07, 0xFF});
    ASSERT_EQ(r.count, 1);
    EXPECT_EQ(r.value[0], 7);
    EXPECT_EQ(decode({0x90, 0x41, 0x07, 0xFF}).count, 0);  // byte 1 is not 0x50
    EXPECT_EQ(decode({0x90, 0x60, 0x02, 0xFF}).count, 0);  // a syntax error is no value

    r = decode({0x90, 0x50, 0x0A, 0xC8, 0xFF});
    ASSERT_EQ(r.count, 1);
    EXPECT_EQ(r.value[0], 200);
    EXPECT_EQ(decode({0x90, 0x50, 0x0B, 0x01, 0xFF}).count, 0);  // byte 2 is not 0x0A
    EXPECT_EQ(decode({0x90, 0x11, 0x0A, 0x01, 0xFF}).count, 1);  // byte 1 is not looked at
}

TEST(ViscaDecode, ZoomPositionIsUnsigned16BitsWithMaskedNibbles) {
    EXPECT_EQ(decode({0x90, 0x50, 0x01, 0x02, 0x03, 0x04, 0xFF}).value[0], 0x1234);
    // The high nibbles of bytes 3 to 5 are dropped.
    EXPECT_EQ(decode({0x90, 0x50, 0x01, 0xF2, 0xE3, 0xD4, 0xFF}).value[0], 0x1234);
    // Byte 2 is taken whole; only its low nibble survives the 16 bits.
    EXPECT_EQ(decode({0x90, 0x50, 0x1F, 0x00, 0x00, 0x00, 0xFF}).value[0], 0xF000);
    EXPECT_EQ(decode({0x90, 0x50, 0x0F, 0x0F, 0x0F, 0x0F, 0xFF}).value[0], 65535);  // not -1
    EXPECT_EQ(decode({0x90, 0x50, 0x0F, 0x0F, 0x0F, 0x0F, 0xFF}).count, 1);
}

TEST(ViscaDecode, PanAndTiltAreSigned16Bits) {
    ViscaReply r = decode({0x90, 0x50, 0x0F, 0x0F, 0x03, 0x08, 0x00, 0x01, 0x02, 0x03, 0xFF});
    ASSERT_EQ(r.count, 2);
    EXPECT_EQ(r.value[0], -200);
    EXPECT_EQ(r.value[1], 0x123);
    r = decode({0x90, 0x50, 0x07, 0x0F, 0x0F, 0x0F, 0x08, 0x00, 0x00, 0x00, 0xFF});
    EXPECT_EQ(r.value[0], 32767);
    EXPECT_EQ(r.value[1], -32768);
    r = decode({0x90, 0x50, 0x30, 0xF0, 0xA1, 0x52, 0x1F, 0xFF, 0xFF, 0xFF, 0xFF});
    EXPECT_EQ(r.value[0], 0x0012);
    EXPECT_EQ(r.value[1], -1);
}

TEST(ViscaDecode, TwelveBytesCarryThreePackedDecimals) {
    ViscaReply r = decode({0x90, 0x50, 0xAA, 0xBB, 0xCC, 0x12, 0x34, 0x99, 0x00, 0x00, 0x00, 0xFF});
    ASSERT_EQ(r.count, 3);
    EXPECT_EQ(r.value[0], 12);
    EXPECT_EQ(r.value[1], 34);
    EXPECT_EQ(r.value[2], 99);
    // Digits above 9 are not checked: 0xAF is 10 * 10 + 15.
    EXPECT_EQ(decode({0x90, 0x50, 0, 0, 0, 0xAF, 0, 0, 0, 0, 0, 0xFF}).value[0], 115);
}

TEST(ViscaDecode, OtherLengthsAreIgnored) {
    const Bytes plenty(40, 0x50);
    for (int length : {-1, 0, 1, 2, 3, 6, 8, 9, 10, 13, 14, 15, 16, 32}) {
        ViscaReply reply;
        reply.count = 9;
        EXPECT_EQ(decode_visca_reply(plenty.data(), length, &reply), 0) << length;
        EXPECT_EQ(reply.count, 0) << length;
    }
}
