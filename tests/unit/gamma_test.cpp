// Automatic gamma: the verdict's two range sets, the handshake with the peer,
// and bit-for-bit agreement with the step-by-step reference (statistics,
// curve, reverse mapping, state), also on garbage records.
#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstring>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "process_helpers.h"
#include "faceDet/auto_gamma.h"
#include "faceDet/luma_histogram.h"
#include "gamma_reference.h"
#include "output_capture.h"

namespace {

using Hist = std::array<float, 256>;
constexpr int kWidth = 416, kHeight = 234;

Hist counts(std::initializer_list<std::pair<int, float>> bins) {
    Hist h{};
    for (const auto &[level, count] : bins) {
        h[level] = count;
    }
    return h;
}

// A picture whose luma runs from `from` at the left to `to` at the right, as the frame loop counts it.
Hist ramp(int from, int to) {
    std::vector<uint8_t> luma(kWidth * kHeight);
    for (size_t i = 0; i < luma.size(); ++i) {
        luma[i] = static_cast<uint8_t>(from + (to - from) * static_cast<int>(i % kWidth) / (kWidth - 1));
    }
    Hist h;
    build_luma_histogram(luma.data(), kWidth, kHeight, h.data());
    return h;
}

// A scene's histogram: a few lit areas, each a bell of pixels around its level,
// shifted darker or brighter by `light`; whole pixel counts adding up to 97344.
Hist scene(std::mt19937 &rng, double light) {
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    std::vector<double> mass(256, 1e-9);
    for (int area = std::uniform_int_distribution<int>(1, 6)(rng); area > 0; --area) {
        const double centre = uniform(rng) * 255 + light, spread = 2 + uniform(rng) * 40,
                     weight = uniform(rng);
        for (int i = 0; i < 256; ++i) {
            mass[i] += weight * std::exp(-(i - centre) * (i - centre) / (2 * spread * spread));
        }
    }
    const double total = std::accumulate(mass.begin(), mass.end(), 0.0);
    Hist h{};
    int left = 97344;
    for (int i = 0; i < 256; ++i) {
        h[i] = static_cast<float>(std::floor(mass[i] / total * 97344));
        left -= static_cast<int>(h[i]);
    }
    h[std::max_element(mass.begin(), mass.end()) - mass.begin()] += static_cast<float>(left);
    return h;
}

Hist random_hist(std::mt19937 &rng) {
    const int kind = std::uniform_int_distribution<int>(0, 4)(rng);
    return kind == 4 ? counts({{std::uniform_int_distribution<int>(0, 255)(rng), 97344}})
                     : scene(rng, kind * 50.0 - 60.0);
}

struct TestState {
    int32_t cur = 0, pre = 0;
    uint8_t reverse = 0;
    int32_t applied[256] = {}, fresh[256] = {};
    GammaState state{cur, pre, reverse, applied, fresh};
};

void expect_same(const TestState &t, const ReferenceGammaState &r, const GammaRecord &a, const GammaRecord &b,
                 const std::string &where) {
    EXPECT_EQ(std::vector<int>({t.cur, t.pre, t.reverse}),
              std::vector<int>({r.cur_isuse, r.pre_isuse, r.reverseFlag}))
        << where;
    EXPECT_EQ(0, memcmp(t.applied, r.appliedOffsets, sizeof t.applied)) << where << ": appliedOffsets";
    EXPECT_EQ(0, memcmp(t.fresh, r.newOffsets, sizeof t.fresh)) << where << ": newOffsets";
    for (size_t w = 0; w < sizeof a / 4; ++w) {
        const int32_t wa = reinterpret_cast<const int32_t *>(&a)[w],
                      wb = reinterpret_cast<const int32_t *>(&b)[w];
        if (wa != wb) {
            ADD_FAILURE() << where << ": records differ first at byte offset " << w * 4 << ": " << wa
                          << " vs " << wb;
            return;
        }
    }
}

GammaRecord request(int32_t strength) {
    GammaRecord r{};
    for (int i = 0; i < kGammaReservedWords; ++i) {
        r.reserved[i] = 0x5A5A0000 + i;
    }
    r.mode = 1;
    r.strength = strength;
    return r;
}

// The segment as the step sees it: this record and these results.
struct FakePeer {
    static inline GammaRecord record, written;
    static inline int readResult, writeResult, reads, writes;
    static int read(void *to) {
        ++reads;
        readResult != 0 ? (void)memcpy(to, &record, sizeof record) : (void)0;
        return readResult;
    }
    static int write(const void *from) {
        ++writes;
        memcpy(&written, from, sizeof written);
        return writeResult;
    }
    static void reset(const GammaRecord &r) {
        record = r;
        readResult = writeResult = 1;
        reads = writes = 0;
        memset(&written, 0, sizeof written);
    }
};

// One step against the fake peer; returns its result and what it printed.
std::pair<GammaStepResult, std::string> step(TestState &t, GammaRecord &copy, Hist &h) {
    OutputCapture out;
    const GammaStepResult result =
        auto_gamma_step(t.state, copy, h.data(), {FakePeer::read, FakePeer::write});
    return {result, out.finish()};
}

// Runs frames through unit and reference side by side, the peer record of each
// frame made by `next` from the last record written back; compares every
// record written and the whole state after every frame.
template <typename NextRecord>
void run_against_reference(std::mt19937 &rng, int frames, NextRecord next) {
    TestState t;
    ReferenceGammaState ref;
    GammaRecord copy{}, peer = request(100);
    int answered = 0, reported = 0;
    for (int frame = 0; frame < frames && !::testing::Test::HasFailure(); ++frame) {
        peer = next(peer);
        const std::string where = "frame " + std::to_string(frame);
        const Hist source = random_hist(rng);
        Hist h = source, refHist = source;
        FakePeer::reset(peer);
        const auto [result, printed] = step(t, copy, h);
        reported += static_cast<int>(count_of(printed, "send data ok!!!\n"));
        GammaRecord refRecord = peer;
        const bool refWrites = reference_gamma_frame(ref, refRecord, refHist.data());
        ASSERT_EQ(result == kGammaAnswered, refWrites) << where;
        ASSERT_EQ(h, refHist) << where << ": histogram after the step";
        expect_same(t, ref, refWrites ? FakePeer::written : refRecord, refRecord, where);
        if (refWrites) {
            ++answered;
            peer = FakePeer::written;  // the peer sees the answer
        }
    }
    EXPECT_EQ(reported, answered);
    EXPECT_GT(answered, frames / 10);
}

}  // namespace

TEST(GammaVerdict, TwoRangeSets) {
    struct Case {
        GammaStats stats;  // mean, stdDev, p1, p10, p50, p90, p99
        bool valid;
    } cases[] = {
        {{110, 50, 20, 40, 112, 180, 240}, true},   {{71, 26, 0, 11, 51, 131, 0}, true},
        {{70, 26, 0, 11, 51, 131, 0}, false},       {{149, 89, 79, 119, 178, 229, 255}, true},
        {{120, 50, 20, 40, 90, 180, 240}, false},   {{110, 90, 20, 40, 112, 180, 240}, false},
        {{110, 50, 20, 40, 112, 130, 240}, false},  {{110, 50, 20, 120, 112, 180, 240}, false},
        {{110, 50, 80, 100, 112, 180, 240}, false},  // first set holds: p1 at most 79, 89 not tried
        {{150, 40, 20, 100, 150, 200, 240}, false},  // between the two sets' means
        {{160, 40, 85, 100, 165, 200, 250}, true},  {{151, 26, 89, 11, 170, 131, 0}, true},
        {{169, 59, 0, 119, 145, 229, 0}, true},     {{160, 40, 90, 100, 165, 200, 250}, false},
        {{160, 60, 20, 100, 165, 200, 250}, false}, {{155, 40, 20, 100, 175, 200, 250}, false},
        {{160, 40, 20, 100, 135, 200, 250}, false},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(gamma_verdict(c.stats), c.valid)
            << c.stats.mean << " " << c.stats.stdDev << " " << c.stats.p50;
    }
}

// Modes other than 1 are walked against the reference below; here the write's report.
TEST(GammaStep, TheWriteIsReportedAndALockedReadAnswersFromTheCopy) {
    FakePeer::reset(request(80));
    FakePeer::writeResult = 0;
    TestState t;
    GammaRecord copy{};
    Hist h = ramp(30, 200);
    EXPECT_EQ(step(t, copy, h), std::make_pair(kGammaWriteFailed, std::string("send data failed!!!\n")));
    // The peer held the lock on the next read: the copy still asks, so it is answered from it again.
    FakePeer::readResult = 0;
    FakePeer::writeResult = 1;
    FakePeer::record.mode = 0;
    h = ramp(30, 200);
    EXPECT_EQ(step(t, copy, h), std::make_pair(kGammaAnswered, std::string("send data ok!!!\n")));
    EXPECT_EQ(FakePeer::reads, 2);
    EXPECT_EQ(FakePeer::written.mode, 1);
    EXPECT_EQ(0, memcmp(&copy, &FakePeer::written, sizeof copy));
    for (int i = 0; i < kGammaReservedWords; ++i) {
        EXPECT_EQ(FakePeer::written.reserved[i], 0x5A5A0000 + i);
    }
}

TEST(GammaReference, PeerConversationsAndGarbageRecordsMatchBitForBit) {
    // A well-behaved peer asks now and then, takes valid curves into use and drops them again.
    std::mt19937 rng(20240611);
    std::uniform_int_distribution<int> die(0, 9);
    run_against_reference(rng, 600, [&](GammaRecord r) {
        if (r.mode == 1) {
            r.mode = 0;
            r.isuse = r.valid == 1 ? 1 : r.isuse;
        } else if (die(rng) < 3) {
            r.mode = 1;
            r.strength = std::uniform_int_distribution<int32_t>(-50, 300)(rng);
        } else if (die(rng) == 0) {
            r.isuse = 0;
        }
        return r;
    });
    // Anything in any field: the step stays within its tables, and the reference
    // checks that no float leaves the int32 range before a truncation.
    std::uniform_int_distribution<int32_t> any(INT32_MIN, INT32_MAX);
    const int32_t edges[] = {INT32_MIN, INT32_MIN + 1, -1, 0, 1, 285, 286, INT32_MAX - 1, INT32_MAX};
    run_against_reference(rng, 1500, [&](GammaRecord r) {
        int32_t *words = reinterpret_cast<int32_t *>(&r);
        for (size_t w = 0; w < sizeof r / 4; ++w) {
            words[w] = die(rng) < 3 ? any(rng) : words[w];
        }
        r.mode = die(rng) < 6 ? 1 : (die(rng) < 5 ? 0 : any(rng));
        r.isuse = die(rng) < 4 ? 1 : (die(rng) < 6 ? 0 : any(rng));
        r.valid = die(rng) < 5 ? 1 : any(rng);
        r.strength = die(rng) < 5 ? edges[die(rng) % 9] : any(rng);
        return r;
    });
}

TEST(GammaReference, PicturesAtManyStrengthsMatchBitForBit) {
    std::mt19937 rng(7);
    std::vector<Hist> pictures = {ramp(30, 200), ramp(0, 255), counts({{0, 97344}}), counts({{255, 97344}}),
                                  // Frames where one step done in the other precision answers differently:
                                  // the mean's float sum (182 against 181 in double), the deviation's (70
                                  // against 69), the float conversion of a curve level, the float exponent.
                                  counts({{192, 82057}, {91, 5558}, {61, 3740}, {205, 5989}}),
                                  counts({{147, 48684}, {7, 48660}}),
                                  counts({{91, 12687}, {101, 1939}, {220, 42937}, {238, 32222}, {115, 7559}}),
                                  counts({{102, 77561}, {234, 19783}})};
    pictures.emplace_back().fill(97344.0f / 256.0f);  // all bins equal: the one input the curve refuses
    for (int n = 0; n < 12; ++n) {
        pictures.push_back(scene(rng, -80.0 + n * 15.0));
    }
    int valid = 0, answers = 0;
    for (const Hist &picture : pictures) {
        std::vector<int32_t> strengths = {0, INT32_MIN, INT32_MAX};  // 0: the identity
        for (int32_t strength = -40; strength <= 320; strength += 9) {
            strengths.push_back(strength);
        }
        for (int32_t strength : strengths) {
            TestState t;
            ReferenceGammaState ref;
            GammaRecord mine = request(strength), theirs = mine;
            Hist a = picture, b = picture;
            gamma_answer(t.state, mine, a.data());
            reference_gamma_frame(ref, theirs, b.data());
            expect_same(t, ref, mine, theirs, "strength " + std::to_string(strength));
            valid += mine.valid;
            ++answers;
        }
    }
    EXPECT_GT(valid, 0);  // both verdicts are covered
    EXPECT_LT(valid, answers);
    GammaStats precision[2];
    gamma_statistics(pictures[4].data(), &precision[0]);
    gamma_statistics(pictures[5].data(), &precision[1]);
    EXPECT_EQ(precision[0].mean * 1000 + precision[1].stdDev, 182070);
}
