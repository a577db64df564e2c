/*
 * The processes behind the live view, in a runtime folder and shared-memory
 * key of their own: camera_sim as the camera, faceDet in realtime at the
 * camera's pace on the source (publishing its frames through the frame tap),
 * and gamma_peer when asked for. The control endpoint is driven as the
 * camera's control process drives it: two bytes per command.
 */
#ifndef FACEDET_LIVE_SESSION_H
#define FACEDET_LIVE_SESSION_H

#include <chrono>
#include <memory>
#include <string>

#include "session.h"

namespace live {

struct SessionOptions {
    std::string source;
    double frameCostMs = 0;
    bool once = false;   // a file source plays once instead of looping
    bool gamma = false;  // also run gamma_peer
    std::string engine;  // empty: the daemon's default
    SessionPrograms programs;
};

class LiveSession {
  public:
    LiveSession() = default;
    ~LiveSession();
    LiveSession(const LiveSession &) = delete;
    LiveSession &operator=(const LiveSession &) = delete;

    // Starts everything; false with *error (one line) when something cannot
    // start, with nothing left behind.
    bool start(const SessionOptions &options, std::string *error);
    // "run", "stop" or "off" to the daemon's control endpoint; false when the
    // datagram could not be sent (no daemon listening).
    bool send_command(const std::string &command) const { return session_.send_control(command); }
    ChildProcess &daemon() { return *session_.daemon(); }
    // Ends every process (SIGTERM, SIGKILL for any still there after the
    // grace), removes the runtime folder and the segment. Within about 3 s.
    void stop();

    std::string path(const char *name) const { return session_.path(name); }

  private:
    Session session_;
};

// Whether a source is a device that delivers frames by itself (and cannot loop).
bool is_device(const std::string &source);

}  // namespace live

#endif
