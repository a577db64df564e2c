// Automatic gamma end to end: the real daemon on a raw clip and gamma_peer as
// the image-tuning process, through a private shared-memory segment. The
// answers must be those of the step-by-step reference on the clip's luma.
#include <signal.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "daemon_fixture.h"
#include "gamma_reference.h"

namespace {

// One NV12 frame whose luma is a ramp from 30 to 200 across with a fixed
// pattern of noise: a scene whose curve is accepted. Every frame of the clip
// is this one, so the histogram the daemon answers from is known.
std::string ramp_frame() {
    const int width = 416, height = 234;
    std::string frame(width * height * 3 / 2, '\x80');
    uint32_t noise = 12345;
    for (int i = 0; i < width * height; ++i) {
        noise = noise * 1103515245u + 12345u;
        const int v = 30 + 170 * (i % width) / (width - 1) + static_cast<int>((noise >> 16) % 13) - 6;
        frame[i] = static_cast<char>(std::clamp(v, 0, 255));
    }
    return frame;
}

std::map<std::string, int> read_csv(const std::string &path) {
    std::map<std::string, int> values;
    std::istringstream in(read_file(path));
    std::string line;
    std::getline(in, line);  // header
    while (std::getline(in, line)) {
        const size_t comma = line.find(',');
        if (comma != std::string::npos) {
            values[line.substr(0, comma)] = std::stoi(line.substr(comma + 1));
        }
    }
    return values;
}

// The line gamma_peer prints for an answer.
std::string answer_line(int n, const GammaRecord &r, int isuse) {
    char line[256];
    snprintf(line, sizeof line,
             "answer %d: valid=%d mean=%d stdDev=%d p1=%d p10=%d p50=%d p90=%d p99=%d strength=%d isuse=%d "
             "-> %s\n",
             n, r.valid, r.mean, r.stdDev, r.p1, r.p10, r.p50, r.p90, r.p99, r.strength, isuse,
             r.valid == 1 ? "curve accepted" : "curve rejected");
    return line;
}

class GammaDaemonTest : public DaemonTest {};

}  // namespace

TEST_F(GammaDaemonTest, PeerGetsTheReferenceAnswersAndTheSecondIsJudgedThroughTheAppliedCurve) {
    const std::string key = daemon_env().at("FACEDET_SHM_KEY");
    const std::string frame = ramp_frame();
    const std::string clip = dir_.file("ramp.nv12");
    std::string frames;
    while (frames.size() < 30 * frame.size()) {
        frames += frame;
    }
    write_file(clip, frames);
    auto daemon = start({{"FACEDET_SHM_KEY", key},
                         {"FACEDET_SOURCE", clip},
                         {"FACEDET_PACE", "realtime"},
                         {"FACEDET_LOOP", "1"}});
    // The peer comes up before the segment exists and waits for it. Its second
    // request comes a second after the first answer, so the daemon has seen
    // the curve reported in use (and taken its offsets as applied) by then.
    std::vector<std::string> args = {"--every", "30",        "--strength", "120",   "--answers",
                                     "2",       "--seconds", "120",        "--csv", dir_.file("answer.csv")};
#if FACEDET_HAS_OPENCV
    args.insert(args.end(), {"--png", dir_.file("curve.png")});
#endif
    auto peer = spawn(GAMMA_PEER_BIN, args, dir_.path(), {{"FACEDET_SHM_KEY", key}});
    ASSERT_EQ(peer->wait_exit(150s), 0) << peer->out() << peer->err() << daemon->out().substr(0, 4000);
    daemon->signal(SIGTERM);
    ASSERT_EQ(daemon->wait_exit(30s), 0);

    // What the daemon must have answered: first on the frame's histogram, then
    // on it mapped back through the offsets of the first curve.
    std::vector<float> frameHist(256, 0.0f);
    for (int i = 0; i < 416 * 234; ++i) {
        frameHist[static_cast<uint8_t>(frame[i])] += 1.0f;
    }
    ReferenceGammaState ref;
    const auto frame_with = [&](GammaRecord &record) {
        std::vector<float> hist = frameHist;
        return reference_gamma_frame(ref, record, hist.data());
    };
    GammaRecord first;
    memset(&first, 0, sizeof first);
    first.mode = 1;
    first.strength = 120;
    ASSERT_TRUE(frame_with(first));
    ASSERT_EQ(first.valid, 1) << "the clip is meant to be accepted";
    GammaRecord second = first;  // the peer's record after taking the curve: in use, no request
    second.mode = 0;
    second.isuse = 1;
    ASSERT_FALSE(frame_with(second));
    second.mode = 1;
    ASSERT_TRUE(frame_with(second));
    ASSERT_NE(second.mean * 1000 + second.p50, first.mean * 1000 + first.p50)
        << "the applied curve must move the statistics for this test to see it";

    const std::string out = peer->out();
    EXPECT_NE(out.find(answer_line(1, first, 0)), std::string::npos) << answer_line(1, first, 0) << out;
    EXPECT_NE(out.find(answer_line(2, second, 1)), std::string::npos) << answer_line(2, second, 1) << out;

    const std::map<std::string, int> csv = read_csv(dir_.file("answer.csv"));
    ASSERT_EQ(csv.size(), 11u + 256u);
    // The statistics are checked in the answer lines above; the curve only here.
    EXPECT_EQ(csv.at("answer"), 2);
    for (int i = 0; i < 256; ++i) {
        ASSERT_EQ(csv.at("curve[" + std::to_string(i) + "]"), second.curve[i]) << "level " << i;
    }

    const std::string daemonOut = daemon->out();
    EXPECT_EQ(count_of(daemonOut, "send data ok!!!\n"), 2u);
    EXPECT_EQ(count_of(daemonOut,
                       "-----------------------------------gamma 反算-----------------------------------\n"),
              1u);
    EXPECT_TRUE(
        InOrder(daemonOut, {"send data ok!!!\n", "gamma 反算", "send data ok!!!\n", "faceDet release!"}));
#if FACEDET_HAS_OPENCV
    EXPECT_EQ(read_file(dir_.file("curve.png")).substr(0, 8), "\x89PNG\r\n\x1a\n");
#endif
}

TEST_F(GammaDaemonTest, PeerWithoutADaemonWaitsUpToItsTimeLimit) {
    auto peer = spawn(GAMMA_PEER_BIN, {"--once", "--seconds", "0.3"}, dir_.path(),
                      {{"FACEDET_SHM_KEY", daemon_env().at("FACEDET_SHM_KEY")}});
    EXPECT_EQ(peer->wait_exit(10s), 1);
    EXPECT_NE(peer->err().find("gamma_peer: no segment of key"), std::string::npos) << peer->err();
}
