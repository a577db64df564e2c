// The simulated camera without sockets: it parses every packet of the
// daemon's table, refuses malformed ones, moves at its rates and answers
// inquiries in the daemon's formats.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sim_protocol.h"
#include "sim_ptz.h"
#include "visca/visca_codec.h"

namespace {

SimCommand parse(const Bytes &packet, std::string *why = nullptr) {
    SimCommand command;
    const char *reason = "";
    bool ok = parse_sim_command(packet.data(), static_cast<int>(packet.size()), &command, &reason);
    if (why) {
        *why = ok ? "" : reason;
    }
    return command;
}

Bytes encoded(int id, int32_t a0 = 0, int32_t a1 = 0, int32_t a2 = 0, int32_t a3 = 0) {
    const int32_t args[4] = {a0, a1, a2, a3};
    uint8_t out[kViscaMaxPacket];
    return Bytes(out, out + visca_encode(id, args, out));
}

void give(SimPtz &ptz, const Bytes &packet) {
    std::string why;
    SimCommand command = parse(packet, &why);
    ASSERT_EQ(why, "");
    ptz.apply(command);
}

}  // namespace

TEST(CameraSimParse, EveryCommandOfTheDaemonIsUnderstood) {
    for (int id = 0; id <= kViscaLastCommand; ++id) {
        std::string why;
        SimCommand command = parse(encoded(id, 5, 2, -200, 300), &why);
        EXPECT_EQ(why, "") << "id " << id;
        EXPECT_EQ(command.id, id);
        EXPECT_EQ(command.inquiry, id == 2 || id == 3 || id == 10 || id == 11 || id == 12) << "id " << id;
    }
    EXPECT_EQ(parse(encoded(0, 1920)).position, 1920);
    const SimCommand move = parse(encoded(1, 15, 10, -200, -540)), drive = parse(encoded(4, 3, 4, 1, 2));
    EXPECT_EQ((std::vector<int>{move.panSpeed, move.tiltSpeed, move.pan, move.tilt}),
              (std::vector<int>{15, 10, -200, -540}));
    EXPECT_EQ(drive.panDirection * 10 + drive.tiltDirection, 12);
    EXPECT_EQ(parse(encoded(7, 9)).value, 9);
    EXPECT_EQ(parse(encoded(18, 5, 2)).value, 0x25);
}

TEST(CameraSimParse, MalformedPacketsAreNamed) {
    const struct {
        Bytes packet;
        const char *reason;
    } cases[] = {
        {{}, "too short"},
        {{0x81}, "too short"},
        {{0x81, 0xFF}, "too short"},
        {Bytes(16, 0x01), "too long"},
        {{0x82, 0x09, 0x04, 0x47, 0xFF}, "wrong address byte"},
        {{0x81, 0x09, 0x04, 0x47, 0xFE}, "no terminator"},
        {{0x81, 0x09, 0xFF, 0x47, 0xFF}, "terminator inside"},
        {{0x81, 0x01, 0x04, 0x47, 0x10, 0x00, 0x00, 0x00, 0xFF}, "bad nibble"},
        {{0x81, 0x01, 0x04, 0x47, 0x00, 0x00, 0xFF}, "wrong length"},
        {{0x81, 0x09, 0x04, 0x47, 0x00, 0xFF}, "wrong length"},
        {{0x81, 0x01, 0x06, 0x02, 0x01, 0x01, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF},
         "unknown command"},  // 06, not 44
        {{0x81, 0x01, 0x04, 0x00, 0x02, 0xFF}, "unknown command"},
    };
    for (const auto &c : cases) {
        std::string why;
        SimCommand command = parse(c.packet, &why);
        EXPECT_EQ(why, c.reason) << hex_bytes(c.packet.data(), c.packet.size());
        EXPECT_EQ(command.id, -1);
    }
}

TEST(CameraSimMotion, AxesMoveAtTheirOwnRatesTowardTheTarget) {
    EXPECT_EQ(pan_tilt_rate(0) + pan_tilt_rate(15), 30.0 + 900.0);
    EXPECT_EQ(width_for_zoom_position(0) + width_for_zoom_position(0xFFFF), 2 * 1920.0);  // the full width
    EXPECT_EQ(width_for_zoom_position(50), 192.0);
    SimPtz ptz;
    EXPECT_EQ(ptz.zoom().position, 1920.0);
    give(ptz, encoded(1, 5, 2, 300, -120));  // 300 px/s and 120 px/s
    give(ptz, encoded(0, 960));
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
    give(ptz, encoded(1, 0, 0, 200, -120));
    ptz.advance(1.0);
    EXPECT_DOUBLE_EQ(ptz.pan().position, 270.0);
    // Targets outside the view are held at its edge.
    give(ptz, encoded(1, 24, 24, -2000, 2000));
    ptz.advance(10);
    EXPECT_DOUBLE_EQ(ptz.pan().position, -960.0);
    EXPECT_DOUBLE_EQ(ptz.tilt().position, 540.0);
}

TEST(CameraSimMotion, DrivePresetsAndZoomDrive) {
    SimPtz ptz;
    give(ptz, encoded(4, 1, 1, 2, 1));  // right and up at 60 px/s
    ptz.advance(1.0);
    EXPECT_DOUBLE_EQ(ptz.pan().position, 60.0);
    EXPECT_DOUBLE_EQ(ptz.tilt().position, 60.0);
    give(ptz, encoded(4, 1, 1, 3, 3));  // stop
    ptz.advance(1.0);
    EXPECT_DOUBLE_EQ(ptz.pan().position, 60.0);
    EXPECT_FALSE(ptz.moving());

    give(ptz, encoded(6, 4));  // remember here as preset 4
    give(ptz, encoded(1, 10, 10, -300, 0));
    ptz.advance(5);
    give(ptz, encoded(7, 4));
    ptz.advance(5);
    EXPECT_DOUBLE_EQ(ptz.pan().position, 60.0);
    give(ptz, encoded(5, 4));
    SimCommand recall = parse(encoded(7, 4));
    EXPECT_FALSE(ptz.apply(recall));  // forgotten

    give(ptz, encoded(18, 7, 2));  // tele at the fastest zoom speed
    ptz.advance(0.5);
    EXPECT_DOUBLE_EQ(ptz.zoom().position, 1920.0 - 480.0);
    give(ptz, encoded(18, 7, 0));
    ptz.advance(1);
    EXPECT_DOUBLE_EQ(ptz.zoom().position, 1920.0 - 480.0);
}

TEST(CameraSimMotion, InquiriesAnswerInTheDaemonsFormats) {
    SimPtz ptz;
    give(ptz, encoded(1, 24, 24, -200, 300));
    give(ptz, encoded(0, 1000));
    give(ptz, encoded(14, 5));
    ptz.advance(10);
    ViscaReply reply;
    Bytes zoom = ptz.inquiry_reply(parse(encoded(2)));
    EXPECT_EQ(zoom.size(), 7u);
    ASSERT_EQ(decode_visca_reply(zoom.data(), zoom.size(), &reply), 1);
    EXPECT_EQ(reply.value[0], 1000);
    Bytes panTilt = ptz.inquiry_reply(parse(encoded(3)));
    EXPECT_EQ(panTilt, (Bytes{0x90, 0x50, 0x0F, 0x0F, 0x03, 0x08, 0x00, 0x01, 0x02, 0x0C, 0xFF}));
    ASSERT_EQ(decode_visca_reply(panTilt.data(), panTilt.size(), &reply), 2);
    EXPECT_EQ(reply.value[0], -200);
    EXPECT_EQ(reply.value[1], 300);
    Bytes version = ptz.inquiry_reply(parse(encoded(10)));
    ASSERT_EQ(decode_visca_reply(version.data(), version.size(), &reply), 3);
    EXPECT_EQ(reply.value[0] * 100 + reply.value[1] * 10 + reply.value[2], 123);
    Bytes motion = ptz.inquiry_reply(parse(encoded(11)));
    ASSERT_EQ(decode_visca_reply(motion.data(), motion.size(), &reply), 1);
    EXPECT_EQ(reply.value[0], 0);  // standing still
    Bytes whiteBalance = ptz.inquiry_reply(parse(encoded(12)));
    ASSERT_EQ(decode_visca_reply(whiteBalance.data(), whiteBalance.size(), &reply), 1);
    EXPECT_EQ(reply.value[0], 5);
    EXPECT_EQ(reply_syntax_error(), (Bytes{0x90, 0x60, 0x02, 0xFF}));
}
