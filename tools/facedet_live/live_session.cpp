#include "live_session.h"

#include <cstdlib>
#include <cstring>

namespace live {
namespace {

// A whole stop of the daemon: its frame wait looks at the exit flag every
// 100 ms, and the camera's hold of the last frame adds at most its cost; the
// peers then end at once.
constexpr std::chrono::milliseconds kDaemonGrace{2500};
constexpr std::chrono::milliseconds kPeerGrace{500};

}  // namespace

bool is_device(const std::string &source) {
    return source.rfind("/dev/", 0) == 0;
}

LiveSession::~LiveSession() {
    stop();
}

bool LiveSession::start(const SessionOptions &o, std::string *error) {
    ::SessionOptions so;
    // In TMPDIR when its path is short, else /tmp: socket paths must stay short.
    const char *tmp = getenv("TMPDIR");
    const std::string base = tmp != nullptr && *tmp != '\0' && strlen(tmp) <= 48 ? tmp : "/tmp";
    so.place = {base + "/facedet_live.XXXXXX", 0x4c560000, 0xffff};
    so.programs = o.programs;
    so.source = o.source;
    so.pace = "realtime";
    so.frameCostMs = o.frameCostMs;
    so.loop = !o.once && !is_device(o.source);
    so.frameTap = true;
    so.engine = o.engine;
    // The daemon's own line names a missing model, so the notes are not needed.
    if (session_.start(so, error) != Session::Start::Ok) {
        stop();
        return false;
    }
    // The command comes while the frame thread sleeps its first two
    // seconds, so auto framing runs from the first analysed frame.
    eventually([&] { return session_.send_control("run") || session_.daemon()->poll(); },
               std::chrono::seconds(5));
    // It waits for the daemon to make the segment.
    if (o.gamma && !session_.start_gamma_peer({"--every", "30"})) {
        *error = "cannot start gamma_peer";
        stop();
        return false;
    }
    return true;
}

void LiveSession::stop() {
    session_.stop(kDaemonGrace, kPeerGrace);
}

}  // namespace live
