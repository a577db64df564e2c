/*
 * The live view's HTTP side: the page, the state as JSON, the MJPEG stream
 * and the control command, with the checks a page that moves a camera needs.
 * There is no authentication, so by default it listens on the loopback only;
 * a request whose Host is not the listening address or localhost gets 403
 * (a page elsewhere cannot reach it through DNS rebinding), /control takes
 * POST only and no foreign Origin, at most four stream clients are served,
 * and a client that stops reading is dropped after 2 s. Clients only ever
 * read the newest picture, so none can slow the daemon, the camera or each
 * other.
 */
#ifndef FACEDET_LIVE_SERVER_H
#define FACEDET_LIVE_SERVER_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace httplib {
class Server;
}

namespace live {

constexpr int kMaxStreamClients = 4;
constexpr std::chrono::seconds kStalledClientLimit{2};

// Whether a request's Host header names the listening address or localhost,
// with or without the port.
bool host_allowed(const std::string &host, const std::string &listenAddress, int port);
// Whether a request's Origin may send commands: absent, or http:// and an
// allowed host.
bool origin_allowed(const std::string &origin, const std::string &listenAddress, int port);
// The command of a control body ("run", "stop", "off", blanks around them
// ignored); empty when it is none of them.
std::string control_command(const std::string &body);

// The newest encoded picture, for any number of stream clients, each of which
// waits for the next one. Each picture is made into the stream's part once,
// for every client. Thread-safe.
class FrameBroadcaster {
  public:
    void publish(const std::vector<unsigned char> &jpeg);
    // Waits up to `limit` for a part newer than *seen (the boundary, the
    // headers and the picture); false when none came or the broadcaster is
    // closed.
    bool wait_newer(uint64_t *seen, std::shared_ptr<const std::string> *part,
                    std::chrono::milliseconds limit);
    // Wakes every client for good.
    void close();
    bool closed();

  private:
    std::mutex mu_;  // guards everything below
    std::condition_variable newer_;
    std::shared_ptr<const std::string> latest_;
    uint64_t sequence_ = 0;
    bool closed_ = false;
};

// What the server asks of the rest of the tool, from its own threads.
struct ServerHooks {
    std::function<std::string()> statusJson;
    std::function<std::string()> timelineJson;
    // Sends a command ("run", "stop" or "off") and returns the state after it.
    std::function<std::string(const std::string &command)> control;
};

class LiveServer {
  public:
    LiveServer(std::string listenAddress, int port, ServerHooks hooks, FrameBroadcaster &frames);
    ~LiveServer();
    LiveServer(const LiveServer &) = delete;
    LiveServer &operator=(const LiveServer &) = delete;

    // Takes the port, before anything else starts; false with *error (one
    // line) when it cannot. Port 0 takes any free one.
    bool bind(std::string *error);
    int port() const { return port_; }
    // Serves on a thread of its own until stop().
    void start();
    void stop();

  private:
    void add_routes();

    std::string listenAddress_;
    int port_;  // the one asked for until bound (0: any free one), then the one bound
    ServerHooks hooks_;
    FrameBroadcaster &frames_;
    std::unique_ptr<httplib::Server> server_;
    std::thread thread_;
    std::atomic<int> streams_{0};
};

}  // namespace live

#endif
