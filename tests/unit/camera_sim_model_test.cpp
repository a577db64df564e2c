// The simulated camera without sockets: it moves each axis at its own rate
// toward the target the daemon's packets give it. (Parsing and replies are
// checked through its socket, end to end.)
#include <gtest/gtest.h>

#include "sim_protocol.h"
#include "sim_ptz.h"
#include "visca/visca_codec.h"

namespace {

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
