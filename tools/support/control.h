// The control endpoint as the camera's own processes drive it: two bytes to
// the daemon's sin_addr.socket, the second switching auto framing (1 run,
// 0 stop with the camera sent to the full view, 2 off with the view reset).
#ifndef FACEDET_TOOLS_CONTROL_H
#define FACEDET_TOOLS_CONTROL_H

#include <cstdint>
#include <string>

// The bytes of "run", "stop" or "off" ({1, 1}, {1, 0}, {1, 2}); false for another word.
bool control_bytes(const std::string &word, uint8_t bytes[2]);

// Sends the two bytes to RUNTIME_DIR/sin_addr.socket without waiting for room
// in its queue. False with *error (the reason, naming the socket) when they
// could not be sent, e.g. when no daemon listens there.
bool send_control(const std::string &runtimeDir, const uint8_t bytes[2], std::string *error = nullptr);

#endif
