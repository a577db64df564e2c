/*
 * Camera motion over VISCA: the daemon's side of the link to the camera's
 * control process. Packets are built by the command table (visca_codec.h) and
 * sent over the feature-camera endpoint; replies arrive on that endpoint's
 * receive thread and land in the reply slot.
 */
#ifndef FACEDET_VISCA_H
#define FACEDET_VISCA_H

#include <atomic>
#include <cstdint>

#include "visca/object_data.h"
#include "visca/visca_codec.h"

// The record the move operations send, stored whole by the frame thread
// before each move; read on the frame thread only.
extern ObjectData_t g_objectData;

// The reply slot. The receive thread fills it when the flag is 0 and then sets
// the flag, so the first reply after an inquiry is the one that counts; an
// inquiry clears the flag before it sends.
extern std::atomic<int32_t> g_receiveData[3];
extern std::atomic<uint8_t> g_receiveFlag;

// The zoom position of the last zoom inquiry (whatever the slot held when the
// inquiry timed out).
extern std::atomic<int32_t> g_zoomPosition;

// Builds command `id` from `args` (a0..a3; null reads as zeros) and sends it
// to the camera process. Channel 0 is the only one; any other sends nothing.
// An id outside the table is sent as an empty datagram. Returns 0.
int send_command(int channel, int id, const int32_t args[4]);

// Hands one reply of the camera process to the reply slot (receive thread).
void VISCA_Command_Receive(const uint8_t *packet, uint8_t length);

// The move operations: zoom first, then pan/tilt.
int visca_move_home();
int visca_move_to_object();
int visca_move_to_object_at_speed(int hSpeed, int vSpeed);
int visca_pan_tilt_drive(int32_t panSpeed, int32_t tiltSpeed, int32_t panDirection, int32_t tiltDirection);
int visca_zoom_drive(int32_t speed, int32_t direction);
int visca_zoom_to(int32_t position);

// Pan or tilt speed for an offset of `offset` pixels: 0 (up to 10) to 10 (over 500).
int visca_speed_from_offset(int offset);

// Waiting inquiries: send, then look at the reply flag every 10 ms, 51 times.
// Zoom: 0 with a reply, 1 on time-out; either way g_zoomPosition takes the
// slot's first value.
int visca_inquire_zoom();
// Command 12: the slot's first value with a reply, 0 on time-out.
int32_t visca_inquire_12();

#endif
