// facedet_live end to end: the real tool, daemon and camera_sim on a looping
// scenario clip, driven over HTTP as its page drives it, and its page in a
// real browser (headless Chromium through ChromeDriver's WebDriver protocol).
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include "process_helpers.h"
#include "scenario_clip.h"
#include "temp_dir.h"

using namespace std::chrono_literals;
using nlohmann::json;

namespace {

// A free port of the loopback, found by binding to port 0.
int free_port() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t n = sizeof a;
    bind(fd, reinterpret_cast<sockaddr *>(&a), sizeof a);
    getsockname(fd, reinterpret_cast<sockaddr *>(&a), &n);
    close(fd);
    return ntohs(a.sin_port);
}

// A stream client on a raw socket: it sends its request and then reads only
// when asked, so a test can make it stall. The status line's code, or 0.
struct StreamClient {
    int fd = -1;
    int status = 0;
    StreamClient(int port, bool stall) {
        fd = socket(AF_INET, SOCK_STREAM, 0);
        if (stall) {
            const int small = 4096;  // a stalled client fills its window soon
            setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
        }
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(static_cast<uint16_t>(port));
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const timeval limit{10, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        if (connect(fd, reinterpret_cast<sockaddr *>(&a), sizeof a) != 0) {
            return;
        }
        const std::string request =
            "GET /stream.mjpg HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n\r\n";
        if (send(fd, request.data(), request.size(), MSG_NOSIGNAL) < 0) {
            return;
        }
        char head[13] = {};
        if (recv(fd, head, 12, MSG_WAITALL) == 12) {
            status = atoi(head + 9);  // "HTTP/1.1 200"
        }
    }
    ~StreamClient() { close(fd); }
    // Reads what has come, without waiting; the bytes read. The first few
    // kilobytes are kept in `seen`.
    size_t drain() {
        char buffer[65536];
        size_t total = 0;
        for (ssize_t n; (n = recv(fd, buffer, sizeof buffer, MSG_DONTWAIT)) > 0;) {
            seen.append(buffer, std::min(static_cast<size_t>(n), 4096 - std::min<size_t>(seen.size(), 4096)));
            total += static_cast<size_t>(n);
        }
        return total;
    }
    std::string seen;
};

class LiveView : public ::testing::Test {
  protected:
    // The tool on `source`, on a free port, its runtime folder in the test's.
    void start(const std::string &source) {
        live_ = spawn(FACEDET_LIVE_BIN, {source, "--port", "0"}, dir_.path(), {{"TMPDIR", dir_.path()}});
        ASSERT_TRUE(live_->wait_for_output("facedet_live: http://127.0.0.1:", 60s)) << live_->err();
        const std::string out = live_->out();
        port_ = atoi(out.c_str() + out.find("127.0.0.1:") + 10);
        ASSERT_GT(port_, 0) << out;
    }

    // A person walking across, looping.
    void start_on_a_walk() {
        scenario::Clip clip;
        std::string error;
        ASSERT_TRUE(scenario::build_clip("walk_across", 0, FACEDET_SHARED_DIR, &clip, &error)) << error;
        ASSERT_TRUE(scenario::write_clip(clip, dir_.file("clip.nv12"), "", &error)) << error;
        start(dir_.file("clip.nv12"));
    }

    void TearDown() override {
        if (live_) {
            live_->signal(SIGTERM);
            live_->wait_exit(20s);
        }
    }

    httplib::Client client() const {
        httplib::Client c("127.0.0.1", port_);
        c.set_read_timeout(10, 0);
        return c;
    }
    json status() const {
        auto r = client().Get("/status.json");
        return r && r->status == 200 ? json::parse(r->body) : json::object();
    }
    bool status_holds(const std::function<bool(const json &)> &holds, std::chrono::milliseconds limit) const {
        return eventually(
            [&] {
                const json s = status();
                return !s.empty() && holds(s);
            },
            limit);
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/"; }

    TempDir dir_;
    std::unique_ptr<ChildProcess> live_;
    int port_ = 0;
};

std::string from_base64(const std::string &text) {
    static const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    unsigned bits = 0, count = 0;
    for (char c : text) {
        const size_t v = digits.find(c);
        if (v == std::string::npos) {
            continue;  // padding
        }
        bits = bits << 6 | static_cast<unsigned>(v);
        if ((count += 6) >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> count & 0xFF);
        }
    }
    return bytes;
}

// The children of a process, from the kernel's list.
std::vector<int> children_of(int pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/task/" + std::to_string(pid) + "/children");
    std::vector<int> pids;
    for (int child; in >> child;) {
        pids.push_back(child);
    }
    return pids;
}

}  // namespace

TEST_F(LiveView, ShowsTheFramingTakesTheCamerasCommandsAndKeepsItsClientsInCheck) {
    ASSERT_NO_FATAL_FAILURE(start_on_a_walk());
    ASSERT_TRUE(status_holds(
        [](const json &s) {
            return s["frames_analysed"] > 3 && s["faces"] >= 1 && s["camera"]["width"] < 1920 &&
                   s["daemon"] == "running" && s["command"] == "run";
        },
        90s))
        << status().dump();
    const json s = status();
    EXPECT_EQ(s["pace"], "realtime");
    EXPECT_EQ(s["frame_cost_ms"], 189.0);
    EXPECT_GT(s["analysed_fps"].get<double>(), 3.0) << "about five a second at 189 ms";
    EXPECT_TRUE(s["last_decision"].is_object()) << s.dump();
    const json timeline = json::parse(client().Get("/timeline.json")->body);
    EXPECT_TRUE(std::any_of(timeline["samples"].begin(), timeline["samples"].end(), [](const json &sample) {
        return sample["zoom_cmd"] < 1920;
    })) << timeline.dump();

    // Stop sends the camera to the full view; run resumes the framing.
    auto stop = client().Post("/control", "stop", "text/plain");
    ASSERT_TRUE(stop && stop->status == 200);
    EXPECT_EQ(json::parse(stop->body)["command"], "stop");
    EXPECT_TRUE(status_holds(
        [](const json &j) { return j["camera"]["width"] == 1920 && !j["camera"]["moving"]; }, 30s))
        << status().dump();
    const long analysed = status()["frames_analysed"];
    ASSERT_TRUE(client().Post("/control", "run", "text/plain"));
    EXPECT_TRUE(status_holds(
        [&](const json &j) { return j["command"] == "run" && j["frames_analysed"] > analysed + 2; }, 30s))
        << status().dump();

    // A foreign Host, a GET of /control, a foreign Origin and a bad command are refused.
    httplib::Client c = client();
    EXPECT_EQ(c.Get("/status.json", {{"Host", "attacker.example:" + std::to_string(port_)}})->status, 403);
    EXPECT_EQ(c.Get("/control")->status, 405);
    EXPECT_EQ(c.Post("/control", {{"Origin", "http://attacker.example"}}, "stop", "text/plain")->status, 403);
    EXPECT_EQ(c.Post("/control", "explode", "text/plain")->status, 400);
    EXPECT_EQ(status()["command"], "run");

    // Four stream clients at most; one that stops reading is dropped after 2 s,
    // and the others, which read, are served all the while.
    {
        std::vector<std::unique_ptr<StreamClient>> watching;
        for (int i = 0; i < 4; ++i) {
            watching.push_back(std::make_unique<StreamClient>(port_, i == 0));
            EXPECT_EQ(watching.back()->status, 200) << i;
        }
        EXPECT_EQ(StreamClient(port_, false).status, 503);
        EXPECT_TRUE(eventually(
            [&] {
                for (size_t i = 1; i < watching.size(); ++i) {
                    watching[i]->drain();
                }
                return StreamClient(port_, false).status == 200;
            },
            30s))
            << "the stalled client keeps its place";
        for (size_t i = 1; i < watching.size(); ++i) {
            EXPECT_TRUE(eventually([&] { return watching[i]->drain() > 0; }, 5s))
                << "a reader was dropped: " << i;
            EXPECT_NE(
                watching[i]->seen.find("--facedetframe\r\nContent-Type: image/jpeg\r\nContent-Length: "),
                std::string::npos)
                << watching[i]->seen.substr(0, 300);
        }
        EXPECT_EQ(status()["daemon"], "running");
    }

    // SIGTERM ends every process it started and removes its runtime folder.
    const std::vector<int> children = children_of(live_->pid());
    ASSERT_GE(children.size(), 2u);
    std::vector<std::string> folders;
    for (int child : children) {
        folders.push_back(std::filesystem::read_symlink("/proc/" + std::to_string(child) + "/cwd"));
    }
    live_->signal(SIGTERM);
    EXPECT_EQ(live_->wait_exit(5s), 0);
    for (size_t i = 0; i < children.size(); ++i) {
        EXPECT_TRUE(kill(children[i], 0) != 0 && errno == ESRCH) << children[i];
        EXPECT_FALSE(std::filesystem::exists(folders[i])) << folders[i];
    }
}

TEST(LiveViewBadInput, TakenPortAndBadSourceGetOneLineAndStartNothing) {
    TempDir dir;
    // Another program listens on the port.
    const int holder = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof a;
    ASSERT_EQ(bind(holder, reinterpret_cast<sockaddr *>(&a), sizeof a), 0);
    ASSERT_EQ(listen(holder, 1), 0);
    getsockname(holder, reinterpret_cast<sockaddr *>(&a), &length);
    const int port = ntohs(a.sin_port);
    write_file(dir.file("clip.nv12"), std::string(416 * 234 * 3 / 2 * 2, '\x80'));
    const struct {
        std::vector<std::string> args;
        std::string line;
    } rows[] = {
        {{dir.file("clip.nv12"), "--port", std::to_string(port)},
         "facedet_live: cannot listen on 127.0.0.1:" + std::to_string(port) + ": "},
        {{dir.file("missing.nv12"), "--port", "0"}, "host platform: cannot open FACEDET_SOURCE '"},
    };
    for (const auto &row : rows) {
        auto live = spawn(FACEDET_LIVE_BIN, row.args, dir.path(), {{"TMPDIR", dir.path()}});
        EXPECT_EQ(live->wait_exit(30s), 1) << row.line;
        EXPECT_EQ(live->err().rfind(row.line, 0), 0u) << live->err();
        EXPECT_EQ(count_of(live->err(), "\n"), 1u) << live->err();
        EXPECT_EQ(live->out(), "");
        for (const auto &entry : std::filesystem::directory_iterator(dir.path())) {
            EXPECT_NE(entry.path().filename().string().rfind("facedet_live.", 0), 0u) << "left behind";
        }
    }
    close(holder);
}

// The page in a real browser: it fills the state in from the tool and its
// Stop button stops the camera. A screenshot of the sample video, the main
// job's, is left for people to look at (the README shows it).
TEST_F(LiveView, BrowserShowsTheLiveStateAndItsStopButtonStopsTheCamera) {
    if (access("/usr/bin/chromium", X_OK) != 0 || access("/usr/bin/chromedriver", X_OK) != 0) {
        GTEST_SKIP() << "no Chromium or ChromeDriver (Debian's chromium and chromium-driver)";
    }
    // Named as a user in its folder would: the tool hands the daemon the whole path.
    std::filesystem::create_symlink(
        std::string(FACEDET_SHARED_DIR) + "/data/videos/talking_head_single_person.mp4",
        dir_.file("talking_head_single_person.mp4"));
    ASSERT_NO_FATAL_FAILURE(start("talking_head_single_person.mp4"));
    const int driverPort = free_port();
    auto driver = spawn("/usr/bin/chromedriver", {"--port=" + std::to_string(driverPort)}, dir_.path());
    httplib::Client webdriver("127.0.0.1", driverPort);
    webdriver.set_read_timeout(60, 0);
    const auto call = [&](const std::string &method, const std::string &path, const json &body) {
        auto r = method == "GET"      ? webdriver.Get(path)
                 : method == "DELETE" ? webdriver.Delete(path)
                                      : webdriver.Post(path, body.dump(), "application/json");
        return r ? json::parse(r->body, nullptr, false) : json();
    };
    ASSERT_TRUE(eventually([&] { return webdriver.Get("/status") != nullptr; }, 20s)) << driver->err();
    const json options = {{"binary", "/usr/bin/chromium"},
                          {"args",
                           {"--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                            "--disable-background-networking", "--disable-component-update", "--disable-sync",
                            "--window-size=1320,1000", "--user-data-dir=" + dir_.file("profile")}}};
    const json session =
        call("POST", "/session", {{"capabilities", {{"alwaysMatch", {{"goog:chromeOptions", options}}}}}});
    ASSERT_TRUE(session["value"].contains("sessionId")) << session.dump();
    const std::string s = "/session/" + session["value"]["sessionId"].get<std::string>();
    const auto text_of = [&](const std::string &id) {
        const json r =
            call("POST", s + "/execute/sync",
                 {{"script", "return document.getElementById(arguments[0]).textContent"}, {"args", {id}}});
        return r["value"].is_string() ? r["value"].get<std::string>() : std::string();
    };
    call("POST", s + "/url", {{"url", url()}});
    // Running, with the camera closed in on the face: the picture for people to look at.
    EXPECT_TRUE(eventually(
        [&] {
            return text_of("daemon") == "running" && text_of("command") == "run" &&
                   atoi(text_of("frames_analysed").c_str()) > 5 &&
                   text_of("camera").find("width 1920") == std::string::npos && text_of("faces") == "1";
        },
        90s))
        << text_of("daemon") << " " << text_of("frames_analysed") << " " << text_of("camera");
    EXPECT_NE(text_of("source").find("talking_head_single_person.mp4"), std::string::npos);
    const json shot = call("GET", s + "/screenshot", nullptr);
    ASSERT_TRUE(shot["value"].is_string());
    std::ofstream(FACEDET_LIVE_SCREENSHOT, std::ios::binary) << from_base64(shot["value"].get<std::string>());

    const json stop = call("POST", s + "/element", {{"using", "css selector"}, {"value", "#stop"}});
    ASSERT_TRUE(stop["value"].is_object()) << stop.dump();
    call("POST", s + "/element/" + stop["value"].begin().value().get<std::string>() + "/click",
         json::object());
    EXPECT_TRUE(eventually([&] { return text_of("command") == "stop"; }, 20s)) << text_of("command");
    EXPECT_TRUE(status_holds([](const json &j) { return j["camera"]["width"] == 1920; }, 30s));

    call("DELETE", s, nullptr);
    driver->stop(5s);
}
