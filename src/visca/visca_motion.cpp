// Motion control: the command sender, the move operations and the inquiries
// that wait for the camera's answer.
#include <unistd.h>

#include <cstdio>

#include "net_communication/net_communication.h"
#include "visca/visca.h"

ObjectData_t g_objectData = {};
std::atomic<int32_t> g_zoomPosition{0};

namespace {

// Pan and tilt speeds of the plain moves.
constexpr int32_t kPanSpeed = 15;
constexpr int32_t kTiltSpeed = 10;

// Inquiries look at the reply flag this often, this many times (about half a second).
constexpr useconds_t kReplyPollMicros = 10000;
constexpr int kReplyPolls = 51;

bool wait_for_reply() {
    for (int poll = 0; poll < kReplyPolls; ++poll) {
        usleep(kReplyPollMicros);
        if (g_receiveFlag.load(std::memory_order_acquire) == 1) {
            return true;
        }
    }
    return false;
}

int send_pan_tilt(int32_t panSpeed, int32_t tiltSpeed, int32_t pan, int32_t tilt) {
    const int32_t args[4] = {panSpeed, tiltSpeed, pan, tilt};
    return send_command(0, kViscaPanTiltAbsolute, args);
}

}  // namespace

int send_command(int channel, int id, const int32_t args[4]) {
    if (channel != 0) {
        return 0;
    }
    uint8_t packet[kViscaMaxPacket] = {};
    const int length = visca_encode(id, args, packet);
    camera_send(packet, length, kTargetFeatureCamera);
    return 0;
}

int visca_zoom_to(int32_t position) {
    const int32_t args[4] = {position, 0, 0, 0};
    return send_command(0, kViscaZoomAbsolute, args);
}

int visca_move_home() {
    visca_zoom_to(0);
    return send_pan_tilt(kPanSpeed, kTiltSpeed, 0, 0);
}

int visca_move_to_object() {
    visca_zoom_to(g_objectData[kObjectZoomPoint]);
    return send_pan_tilt(kPanSpeed, kTiltSpeed, g_objectData[kObjectPanPoint],
                         g_objectData[kObjectTiltPoint]);
}

int visca_move_to_object_at_speed(int hSpeed, int vSpeed) {
    visca_zoom_to(g_objectData[kObjectZoomPoint]);
    printf("\n\n\n ******** hSpeed=%d, vSpeed=%d, ********\n\n\n", hSpeed, vSpeed);
    return send_pan_tilt(hSpeed, vSpeed, g_objectData[kObjectPanPoint], g_objectData[kObjectTiltPoint]);
}

int visca_pan_tilt_drive(int32_t panSpeed, int32_t tiltSpeed, int32_t panDirection, int32_t tiltDirection) {
    const int32_t args[4] = {panSpeed, tiltSpeed, panDirection, tiltDirection};
    return send_command(0, kViscaPanTiltDrive, args);
}

int visca_zoom_drive(int32_t speed, int32_t direction) {
    const int32_t args[4] = {speed, direction, 0, 0};
    return send_command(0, kViscaZoomVariable, args);
}

int visca_speed_from_offset(int offset) {
    // Magnitude bands, every bound exclusive: 500 itself is still 9.
    static const struct {
        int above;
        int speed;
    } kBands[] = {{500, 10}, {400, 9}, {300, 8}, {200, 7}, {150, 6},
                  {110, 5},  {80, 4},  {50, 3},  {30, 2},  {10, 1}};
    const int64_t magnitude = offset < 0 ? -static_cast<int64_t>(offset) : offset;  // INT_MIN too
    for (const auto &band : kBands) {
        if (magnitude > band.above) {
            return band.speed;
        }
    }
    return 0;
}

int visca_inquire_zoom() {
    g_receiveFlag.store(0, std::memory_order_release);
    send_command(0, kViscaZoomInquiry, nullptr);
    const bool replied = wait_for_reply();
    g_zoomPosition = g_receiveData[0].load(std::memory_order_relaxed);
    return replied ? 0 : 1;
}

int32_t visca_inquire_12() {
    g_receiveFlag.store(0, std::memory_order_release);
    send_command(0, kViscaInquiry12, nullptr);
    if (!wait_for_reply()) {
        return 0;
    }
    return g_receiveData[0].load(std::memory_order_relaxed);
}
