/*
 * Local datagram endpoints of the daemon: the control bytes that switch auto
 * framing, and the link to the camera's control process.
 *
 * Two AF_UNIX datagram sockets live as long as the process:
 *   - the control endpoint, bound to <runtime dir>/sin_addr.socket, whose
 *     receive thread copies the first two bytes of every datagram into MsgBuf;
 *   - the feature-camera endpoint, which sends VISCA packets to
 *     <runtime dir>/featureCamera_addr.socket and hands every reply to the
 *     camera reply handler (the VISCA layer's VISCA_Command_Receive, which
 *     main registers) on its own receive thread.
 * Both are created once by camera_udp_init; their threads are never joined.
 * The VISCA layer builds on this one, so replies go up through the handler
 * rather than by name.
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

// Send targets of camera_send.
enum : int {
    kTargetUdp1259 = 8,        // UDP to 127.0.0.1 port 1259
    kTargetFeatureCamera = 9,  // the camera's control process
};

// Socket paths in the runtime directory ("/dev" on the camera). They point at
// constant texts that are computed at the first call of any function below
// and never change afterwards; null until then.
extern const char *sin_path;            // where the control endpoint binds
extern const char *itself_path;         // destination of send_to_itself
extern const char *featureCamera_path;  // the camera's control process

// Fills the three paths above (once per process; later calls do nothing).
void net_paths_init();

// Takes each reply of the camera process (packet, length) on the feature
// receive thread. Set before camera_udp_init; a reply that comes while none
// is set is read and dropped.
typedef void (*CameraReplyHandler)(const uint8_t *packet, uint8_t length);
void set_camera_reply_handler(CameraReplyHandler handler);

// Creates both endpoints and their receive threads; results are only logged.
// Returns 0.
int camera_udp_init();

// The control endpoint: socket, bind, receive thread. 0 or -1.
int detect_camera_udp_init();

// The feature-camera endpoint: socket and receive thread. 0 or -1.
int featureCamera_udp_init();

// Sends `length` bytes to a target: 9 the camera's control process (nothing
// when that endpoint is absent), 8 UDP port 1259 on the loopback. Returns -1
// when the send to the camera failed, else 0.
int camera_send(const uint8_t *buffer, int length, int target);

// One UDP datagram to 127.0.0.1:1259. 0 or -1.
int send_udp_1259(const uint8_t *buffer, int length);

// One datagram from the control endpoint to itself_path. 0 when anything was
// sent, else -1.
int send_to_itself(const uint8_t *buffer, int length);

// The same UDP datagram to 127.0.0.1 ports 12888 and 13888. 0 or -1.
int send_aw_af(const uint8_t *buffer, int length);

// Copies the dotted IPv4 address of eth0 into `text` (at least 16 bytes).
// 0, or the failing call's result.
int get_eth0_address(char *text);

// Prints the host name and its addresses. 0, or -1 when the name has no
// addresses.
int print_host_addresses();

// Thread bodies; the argument is not used. They take their sockets from the
// module state.
void *udp_rx_control_main(void *unused);
void *udp_rx_featureVISCA_main(void *unused);

#endif
