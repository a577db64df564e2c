// The live view's guards, which stand between a browser anywhere and a camera
// that moves: the Host and Origin a request may carry, and the commands.
#include <gtest/gtest.h>

#include "live_server.h"

TEST(LiveViewChecks, OnlyTheListeningAddressOrLocalhostAndOnlyThreeWords) {
    const struct {
        const char *host;
        bool allowed;
    } hosts[] = {
        {"127.0.0.1:8090", true},    {"127.0.0.1", true},
        {"localhost:8090", true},    {"localhost", true},
        {"127.0.0.1:8091", false},   {"localhost.attacker.example:8090", false},
        {"attacker.example", false}, {"", false},
        {"[::1]:8090", false},       {"127.0.0.1:8090:1", false},
    };
    for (const auto &h : hosts) {
        EXPECT_EQ(live::host_allowed(h.host, "127.0.0.1", 8090), h.allowed) << h.host;
    }
    EXPECT_TRUE(live::host_allowed("[::1]:8090", "::1", 8090));
    EXPECT_TRUE(live::host_allowed("192.168.1.5:8090", "192.168.1.5", 8090))
        << "the address given to --listen";

    const struct {
        const char *origin;
        bool allowed;
    } origins[] = {
        {"", true},  // not a browser's cross-site request
        {"http://127.0.0.1:8090", true},
        {"http://localhost:8090", true},
        {"https://127.0.0.1:8090", false},
        {"http://attacker.example", false},
        {"null", false},
    };
    for (const auto &o : origins) {
        EXPECT_EQ(live::origin_allowed(o.origin, "127.0.0.1", 8090), o.allowed) << o.origin;
    }

    const struct {
        const char *body, *command;
    } bodies[] = {{"run", "run"},      {"stop", "stop"}, {"off", "off"},
                  {" stop\n", "stop"}, {"", ""},         {"RUN", ""},
                  {"start", ""},       {"run stop", ""}, {"1", ""}};
    for (const auto &b : bodies) {
        EXPECT_EQ(live::control_command(b.body), b.command) << b.body;
    }
}
