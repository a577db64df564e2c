/*
 * Local datagram endpoints of the daemon: the control bytes that switch auto
 * framing, and the link to the camera's control process.
 */
#ifndef FACEDET_NET_COMMUNICATION_H
#define FACEDET_NET_COMMUNICATION_H

#include <atomic>
#include <cstdint>

// The first two bytes of the last control datagram, {1, 0} at start. Byte 1
// is the auto-framing command the frame loop reads every pass: 1 run, 0 stop
// (full view), 2 off with the view reset. Written by the control receive
// thread, read by the frame thread; each byte on its own is all that matters.
extern std::atomic<uint8_t> MsgBuf[2];

#endif
