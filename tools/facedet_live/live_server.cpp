#include "live_server.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include <httplib.h>

#include "live_page.h"

namespace live {
namespace {

constexpr char kBoundary[] = "facedetframe";

// "host" or "host:port" (an IPv6 host in brackets).
bool split_host_port(const std::string &text, std::string *host, std::string *port) {
    if (text.empty()) {
        return false;
    }
    size_t hostEnd = text.size();
    if (text[0] == '[') {
        hostEnd = text.find(']');
        if (hostEnd == std::string::npos) {
            return false;
        }
        ++hostEnd;
    } else if (const size_t colon = text.rfind(':'); colon != std::string::npos) {
        hostEnd = colon;
    }
    *host = text.substr(0, hostEnd);
    *port = hostEnd < text.size() ? text.substr(hostEnd + 1) : "";
    return hostEnd == text.size() || text[hostEnd] == ':';
}

}  // namespace

bool host_allowed(const std::string &host, const std::string &listenAddress, int port) {
    std::string name, givenPort;
    if (!split_host_port(host, &name, &givenPort)) {
        return false;
    }
    if (!givenPort.empty() && givenPort != std::to_string(port)) {
        return false;
    }
    return name == listenAddress || name == "localhost" || name == "[" + listenAddress + "]";
}

bool origin_allowed(const std::string &origin, const std::string &listenAddress, int port) {
    const std::string scheme = "http://";
    return origin.empty() || (origin.compare(0, scheme.size(), scheme) == 0 &&
                              host_allowed(origin.substr(scheme.size()), listenAddress, port));
}

std::string control_command(const std::string &body) {
    const size_t from = body.find_first_not_of(" \t\r\n");
    const size_t to = body.find_last_not_of(" \t\r\n");
    const std::string word = from == std::string::npos ? "" : body.substr(from, to - from + 1);
    return word == "run" || word == "stop" || word == "off" ? word : "";
}

void FrameBroadcaster::publish(const std::vector<unsigned char> &jpeg) {
    const std::string head =
        std::string("--") + kBoundary +
        "\r\nContent-Type: image/jpeg\r\nContent-Length: " + std::to_string(jpeg.size()) + "\r\n\r\n";
    auto part = std::make_shared<std::string>();
    part->reserve(head.size() + jpeg.size() + 2);
    part->append(head).append(jpeg.begin(), jpeg.end()).append("\r\n");
    {
        std::lock_guard<std::mutex> lk(mu_);
        latest_ = std::move(part);
        ++sequence_;
    }
    newer_.notify_all();
}

bool FrameBroadcaster::wait_newer(uint64_t *seen, std::shared_ptr<const std::string> *part,
                                  std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lk(mu_);
    if (!newer_.wait_for(lk, limit, [&] { return closed_ || (latest_ && sequence_ != *seen); }) || closed_) {
        return false;
    }
    *seen = sequence_;
    *part = latest_;
    return true;
}

bool FrameBroadcaster::closed() {
    std::lock_guard<std::mutex> lk(mu_);
    return closed_;
}

void FrameBroadcaster::close() {
    {
        std::lock_guard<std::mutex> lk(mu_);
        closed_ = true;
    }
    newer_.notify_all();
}

LiveServer::LiveServer(std::string listenAddress, int port, ServerHooks hooks, FrameBroadcaster &frames)
    : listenAddress_(std::move(listenAddress)),
      port_(port),
      hooks_(std::move(hooks)),
      frames_(frames),
      server_(std::make_unique<httplib::Server>()) {
    // Four stream clients hold a thread each for as long as they watch; the
    // page's polls and the fifth client's refusal must still find one.
    server_->new_task_queue = [] { return new httplib::ThreadPool(kMaxStreamClients + 8); };
    server_->set_write_timeout(kStalledClientLimit.count(), 0);
    server_->set_read_timeout(5, 0);
    server_->set_keep_alive_timeout(2);
    server_->set_payload_max_length(4096);
    // The library's default also shares the port (SO_REUSEPORT), so a second
    // view on a taken port would bind quietly; only the restart after a stop
    // may reuse the address.
    server_->set_socket_options([](socket_t sock) {
        const int yes = 1;
        setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    add_routes();
}

LiveServer::~LiveServer() {
    stop();
}

bool LiveServer::bind(std::string *error) {
    errno = 0;
    const int bound = port_ == 0 ? server_->bind_to_any_port(listenAddress_)
                      : server_->bind_to_port(listenAddress_.c_str(), port_) ? port_
                                                                             : -1;
    if (bound <= 0) {
        const int err = errno;
        *error = "cannot listen on " + listenAddress_ + ":" + std::to_string(port_) + ": " +
                 (err != 0 ? std::strerror(err) : "the address cannot be used");
        return false;
    }
    port_ = bound;
    return true;
}

void LiveServer::start() {
    thread_ = std::thread([this] { server_->listen_after_bind(); });
}

void LiveServer::stop() {
    frames_.close();
    if (server_) {
        server_->stop();
    }
    if (thread_.joinable()) {
        thread_.join();
    }
}

void LiveServer::add_routes() {
    using httplib::Request;
    using httplib::Response;
    server_->set_pre_routing_handler([this](const Request &req, Response &res) {
        if (!host_allowed(req.get_header_value("Host"), listenAddress_, port_)) {
            res.status = 403;
            res.set_content("403: this page answers to " + listenAddress_ + " and localhost only\n",
                            "text/plain");
            return httplib::Server::HandlerResponse::Handled;
        }
        if (req.path == "/control" && req.method != "POST") {
            res.status = 405;
            res.set_header("Allow", "POST");
            res.set_content("405: /control takes POST\n", "text/plain");
            return httplib::Server::HandlerResponse::Handled;
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });
    server_->Get(
        "/", [](const Request &, Response &res) { res.set_content(kLivePage, "text/html; charset=utf-8"); });
    server_->Get("/status.json", [this](const Request &, Response &res) {
        res.set_header("Cache-Control", "no-store");
        res.set_content(hooks_.statusJson(), "application/json");
    });
    server_->Get("/timeline.json", [this](const Request &, Response &res) {
        res.set_header("Cache-Control", "no-store");
        res.set_content(hooks_.timelineJson(), "application/json");
    });
    server_->Post("/control", [this](const Request &req, Response &res) {
        if (!origin_allowed(req.get_header_value("Origin"), listenAddress_, port_)) {
            res.status = 403;
            res.set_content("403: commands come from this page only\n", "text/plain");
            return;
        }
        const std::string command = control_command(req.body);
        if (command.empty()) {
            res.status = 400;
            res.set_content("400: the body is run, stop or off\n", "text/plain");
            return;
        }
        const std::string state = hooks_.control(command);
        if (state.empty()) {
            res.status = 503;
            res.set_content("503: the daemon did not take the command\n", "text/plain");
            return;
        }
        res.set_content(state, "application/json");
    });
    server_->Get("/stream.mjpg", [this](const Request &, Response &res) {
        if (streams_.fetch_add(1) >= kMaxStreamClients) {
            --streams_;
            res.status = 503;
            res.set_content("503: " + std::to_string(kMaxStreamClients) + " clients watch already\n",
                            "text/plain");
            return;
        }
        res.set_header("Cache-Control", "no-store");
        auto seen = std::make_shared<uint64_t>(0);
        res.set_chunked_content_provider(
            std::string("multipart/x-mixed-replace; boundary=") + kBoundary,
            [this, seen](size_t, httplib::DataSink &sink) {
                std::shared_ptr<const std::string> part;
                // Short waits, so that the end of the server ends the stream; a
                // gone client is found at the next write, and the tool sends the
                // newest picture again at least once a second.
                if (!frames_.wait_newer(seen.get(), &part, std::chrono::milliseconds(500))) {
                    return !frames_.closed();
                }
                return sink.write(part->data(), part->size());
            },
            [this](bool) { --streams_; });
    });
}

}  // namespace live
