// Automatic gamma: statistics and percentiles, the verdict's two range sets,
// the curve, the handshake with the peer, the per-frame step, bit-for-bit
// agreement with the step-by-step reference, garbage records from the peer,
// and one answer through the real shared-memory segment.
#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "child_process.h"
#include "faceDet/auto_gamma.h"
#include "faceDet/luma_histogram.h"
#include "gamma_reference.h"
#include "ipc_test_env.h"
#include "output_capture.h"
#include "share_memory/share_memory.h"

namespace {

using Hist = std::array<float, 256>;
constexpr int kWidth = 416;
constexpr int kHeight = 234;

// A histogram of pixel counts with the given bins set (the rest 0).
Hist counts(std::initializer_list<std::pair<int, float>> bins) {
    Hist h{};
    for (const auto &[level, count] : bins) {
        h[level] = count;
    }
    return h;
}

GammaStats stats_of(const Hist &h) {
    GammaStats s;
    gamma_statistics(h.data(), &s);
    return s;
}

std::string describe(const GammaStats &s) {
    return "mean " + std::to_string(s.mean) + " stdDev " + std::to_string(s.stdDev) + " p1 " +
           std::to_string(s.p1) + " p10 " + std::to_string(s.p10) + " p50 " + std::to_string(s.p50) +
           " p90 " + std::to_string(s.p90) + " p99 " + std::to_string(s.p99);
}

void expect_stats(const GammaStats &s, int32_t mean, int32_t stdDev, int32_t p1, int32_t p10, int32_t p50,
                  int32_t p90, int32_t p99) {
    GammaStats expected{mean, stdDev, p1, p10, p50, p90, p99};
    EXPECT_EQ(describe(s), describe(expected));
}

// Pictures of the analysis frame, and their histograms as the frame loop builds them.
struct Picture {
    std::vector<uint8_t> luma = std::vector<uint8_t>(kWidth * kHeight);
    Hist hist() const {
        Hist h;
        build_luma_histogram(luma.data(), kWidth, kHeight, h.data());
        return h;
    }
};

uint8_t clamp_level(double v) {
    return static_cast<uint8_t>(std::min(255.0, std::max(0.0, v)));
}

// A scene of a few lit areas over a background, with sensor noise: what the
// camera sees in a room. `light` shifts it darker or brighter.
Picture scene(std::mt19937 &rng, double light) {
    Picture p;
    std::normal_distribution<double> noise(0.0, std::uniform_real_distribution<double>(1.0, 12.0)(rng));
    std::uniform_real_distribution<double> level(0.0, 255.0);
    const double background = level(rng) * 0.6 + light;
    struct Area {
        int x0, y0, x1, y1;
        double value;
    };
    std::vector<Area> areas;
    const int count = std::uniform_int_distribution<int>(0, 6)(rng);
    for (int a = 0; a < count; ++a) {
        int x0 = std::uniform_int_distribution<int>(0, kWidth - 1)(rng);
        int y0 = std::uniform_int_distribution<int>(0, kHeight - 1)(rng);
        areas.push_back({x0, y0, x0 + std::uniform_int_distribution<int>(10, 200)(rng),
                         y0 + std::uniform_int_distribution<int>(10, 120)(rng), level(rng) + light});
    }
    const double slope = std::uniform_real_distribution<double>(-0.3, 0.3)(rng);
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            double v = background + slope * x;
            for (const Area &a : areas) {
                if (x >= a.x0 && x < a.x1 && y >= a.y0 && y < a.y1) {
                    v = a.value;
                }
            }
            p.luma[y * kWidth + x] = clamp_level(v + noise(rng));
        }
    }
    return p;
}

Picture grey(uint8_t level) {
    Picture p;
    std::fill(p.luma.begin(), p.luma.end(), level);
    return p;
}

// A horizontal ramp from `from` to `to`.
Picture ramp(int from, int to) {
    Picture p;
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            p.luma[y * kWidth + x] = static_cast<uint8_t>(from + (to - from) * x / (kWidth - 1));
        }
    }
    return p;
}

// A pool of histograms made once (pictures are slow to draw under the
// sanitizers and qemu), drawn from at random.
Hist random_hist(std::mt19937 &rng) {
    static const std::vector<Hist> pool = [] {
        std::mt19937 draw(5);
        std::vector<Hist> hists;
        for (int n = 0; n < 8; ++n) {
            hists.push_back(scene(draw, -60.0).hist());
            hists.push_back(scene(draw, 90.0).hist());
            hists.push_back(scene(draw, 0.0).hist());
            hists.push_back(scene(draw, 30.0).hist());
            hists.push_back(grey(static_cast<uint8_t>(n * 37)).hist());
        }
        return hists;
    }();
    return pool[std::uniform_int_distribution<size_t>(0, pool.size() - 1)(rng)];
}

// All bins equal: not a frame the camera can deliver (97344 / 256 is no whole
// count), but the one input the curve refuses.
Hist flat_hist() {
    Hist h;
    h.fill(97344.0f / 256.0f);
    return h;
}

// State storage of the unit under test.
struct TestState {
    int32_t cur = 0, pre = 0;
    uint8_t reverse = 0;
    int32_t applied[256] = {};
    int32_t fresh[256] = {};
    GammaState state{cur, pre, reverse, applied, fresh};
};

void expect_same_state(const TestState &t, const ReferenceGammaState &r, const std::string &where) {
    EXPECT_EQ(t.cur, r.cur_isuse) << where;
    EXPECT_EQ(t.pre, r.pre_isuse) << where;
    EXPECT_EQ(t.reverse, r.reverseFlag) << where;
    EXPECT_EQ(0, memcmp(t.applied, r.appliedOffsets, sizeof t.applied)) << where << ": appliedOffsets";
    EXPECT_EQ(0, memcmp(t.fresh, r.newOffsets, sizeof t.fresh)) << where << ": newOffsets";
}

void expect_same_record(const GammaRecord &a, const GammaRecord &b, const std::string &where) {
    if (memcmp(&a, &b, sizeof a) == 0) {
        return;
    }
    const int32_t *wa = reinterpret_cast<const int32_t *>(&a);
    const int32_t *wb = reinterpret_cast<const int32_t *>(&b);
    for (size_t w = 0; w < sizeof a / 4; ++w) {
        if (wa[w] != wb[w]) {
            ADD_FAILURE() << where << ": records differ first at byte offset " << w * 4 << ": " << wa[w]
                          << " vs " << wb[w];
            return;
        }
    }
}

GammaRecord request(int32_t strength, int32_t isuse = 0) {
    GammaRecord r;
    memset(&r, 0, sizeof r);
    for (int i = 0; i < kGammaReservedWords; ++i) {
        r.reserved[i] = 0x5A5A0000 + i;
    }
    r.mode = 1;
    r.strength = strength;
    r.isuse = isuse;
    return r;
}

// The segment as the step sees it, replaced by this record and these results.
struct FakePeer {
    static GammaRecord record;
    static int readResult;
    static int writeResult;
    static int reads;
    static int writes;
    static GammaRecord written;

    static int read(void *to) {
        ++reads;
        if (readResult != 0) {
            memcpy(to, &record, sizeof record);
        }
        return readResult;
    }
    static int write(const void *from) {
        ++writes;
        memcpy(&written, from, sizeof written);
        return writeResult;
    }
    static void reset(const GammaRecord &r) {
        record = r;
        readResult = 1;
        writeResult = 1;
        reads = writes = 0;
        memset(&written, 0, sizeof written);
    }
};
GammaRecord FakePeer::record;
int FakePeer::readResult;
int FakePeer::writeResult;
int FakePeer::reads;
int FakePeer::writes;
GammaRecord FakePeer::written;
const GammaIo kFakeIo = {FakePeer::read, FakePeer::write};

}  // namespace

// ---------------------------------------------------------------- statistics

TEST(GammaStatistics, OneBinCrossingEveryLimitSetsThePercentilesOnTheFollowingBins) {
    expect_stats(stats_of(counts({{100, 97344}})), 100, 0, 100, 101, 102, 103, 104);
    // At the top of the scale the later percentiles find no bins left.
    expect_stats(stats_of(counts({{254, 97344}})), 254, 0, 254, 255, 0, 0, 0);
}

TEST(GammaStatistics, TwoHalvesMeetTheMedianLimitExactly) {
    // The running count at level 50 is 48672, exactly the median's limit, but
    // that bin already set p1; p10 and p50 follow one a bin.
    expect_stats(stats_of(counts({{50, 48672}, {150, 48672}})), 100, 50, 50, 51, 52, 150, 151);
    // Mean 100.5 and deviation 50.5 truncate.
    expect_stats(stats_of(counts({{50, 48672}, {151, 48672}})), 100, 50, 50, 51, 52, 151, 152);
    // 9734399 / 97344 is just below 100.
    EXPECT_EQ(stats_of(counts({{99, 1}, {100, 97343}})).mean, 99);
}

TEST(GammaStatistics, BinsAddOnlyTheirWholePixelsAndUnreachedPercentilesStayZero) {
    // Ten bins of 97.9 count 970, not 979: the 1 % limit (973.44) is reached
    // only at level 10.
    Hist h{};
    for (int i = 0; i < 10; ++i) {
        h[i] = 97.9f;
    }
    h[10] = 4.0f;
    h[200] = 96361.0f;
    EXPECT_EQ(stats_of(h).p1, 10);
    // Fractions alone never count.
    Hist fractions;
    fractions.fill(0.99f);
    const GammaStats none = stats_of(fractions);
    EXPECT_EQ(describe({none.mean, none.stdDev, 0, 0, 0, 0, 0}), describe(none));
    // Mass dropped by the reverse mapping leaves the top percentiles unset.
    expect_stats(stats_of(counts({{30, 50000}})), 15, 10, 30, 31, 32, 0, 0);
}

// ---------------------------------------------------------------- verdict

namespace {

struct VerdictCase {
    const char *name;
    GammaStats stats;  // mean, stdDev, p1, p10, p50, p90, p99
    bool valid;
};

const VerdictCase kVerdictCases[] = {
    {"OrdinaryScene", {110, 50, 20, 40, 112, 180, 240}, true},
    {"OrdinaryLowerBounds", {71, 26, 0, 11, 51, 131, 0}, true},
    {"OrdinaryUpperBounds", {149, 89, 79, 119, 178, 229, 255}, true},
    {"MedianBelowMeanBy30", {120, 50, 20, 40, 90, 180, 240}, false},
    {"StdDev90", {110, 90, 20, 40, 112, 180, 240}, false},
    {"P90At130", {110, 50, 20, 40, 112, 130, 240}, false},
    {"P10At120", {110, 50, 20, 120, 112, 180, 240}, false},
    // The first set holds, so p1 must be at most 79; the bright-scene set's
    // looser 89 is not tried.
    {"P1At80WithTheFirstSetHolding", {110, 50, 80, 100, 112, 180, 240}, false},
    // 150 lies between the two sets' means.
    {"Mean150InNeitherSet", {150, 40, 20, 100, 150, 200, 240}, false},
    {"BrightScene", {160, 40, 85, 100, 165, 200, 250}, true},
    {"BrightSceneBounds", {151, 26, 89, 11, 170, 131, 0}, true},
    {"BrightSceneBoundsHigh", {169, 59, 0, 119, 145, 229, 0}, true},
    {"BrightP1At90", {160, 40, 90, 100, 165, 200, 250}, false},
    {"BrightStdDev60", {160, 60, 20, 100, 165, 200, 250}, false},
    {"BrightMedianAboveBy20", {155, 40, 20, 100, 175, 200, 250}, false},
    {"BrightMedianBelowBy25", {160, 40, 20, 100, 135, 200, 250}, false},
};

// Test names show the case's name, not its bytes.
void PrintTo(const VerdictCase &c, std::ostream *os) {
    *os << c.name;
}

class GammaVerdict : public ::testing::TestWithParam<VerdictCase> {};

}  // namespace

TEST_P(GammaVerdict, RangeSets) {
    EXPECT_EQ(gamma_verdict(GetParam().stats), GetParam().valid) << describe(GetParam().stats);
}

INSTANTIATE_TEST_SUITE_P(Cases, GammaVerdict, ::testing::ValuesIn(kVerdictCases),
                         [](const auto &info) { return std::string(info.param.name); });

// ---------------------------------------------------------------- curve

TEST(GammaCurve, FlatHistogramIsRefusedAndLeavesTheCurve) {
    Hist h = flat_hist();
    int32_t curve[256];
    std::fill(curve, curve + 256, 777);
    EXPECT_FALSE(gamma_curve(h.data(), 100, curve));
    EXPECT_TRUE(std::all_of(curve, curve + 256, [](int32_t v) { return v == 777; }));
    // Normalised all the same, before the range is looked at.
    EXPECT_EQ(h[7], (97344.0f / 256.0f) / 97344);
}

TEST(GammaCurve, StrengthZeroIsTheIdentityAndTheDarkestLevelsNeverChange) {
    std::mt19937 rng(11);
    const int32_t strengths[] = {INT32_MIN, -100000, -1, 1, 50, 100, 286, 1000, 123456789, INT32_MAX};
    for (int n = 0; n < 20; ++n) {
        const Hist source = random_hist(rng);
        Hist h = source;
        int32_t curve[256];
        ASSERT_TRUE(gamma_curve(h.data(), 0, curve));
        for (int i = 0; i < 256; ++i) {
            ASSERT_EQ(curve[i], i) << "strength 0, level " << i;
        }
        for (int32_t strength : strengths) {
            h = source;
            ASSERT_TRUE(gamma_curve(h.data(), strength, curve));
            // Level 20 is where the blend starts from weight 0.
            for (int i = 0; i <= 20; ++i) {
                ASSERT_EQ(curve[i], i) << "strength " << strength << ", level " << i;
            }
        }
    }
}

// ---------------------------------------------------------------- handshake

TEST(GammaHandshake, PeerDroppingItsCurveClearsBothTables) {
    GammaRecord r = request(100);
    r.mode = 0;
    for (int32_t previous : {1, 0, 2, -1}) {
        TestState t;
        std::fill(t.applied, t.applied + 256, 5);
        std::fill(t.fresh, t.fresh + 256, 7);
        t.pre = previous;
        t.reverse = 1;
        r.isuse = 0;
        gamma_handshake(t.state, r);
        EXPECT_EQ(t.reverse, 0);
        EXPECT_EQ(t.cur, 0);
        EXPECT_EQ(t.pre, 0);
        // Only the change from exactly 1 counts as dropping the curve.
        const int32_t applied = previous == 1 ? 0 : 5;
        const int32_t fresh = previous == 1 ? 0 : 7;
        EXPECT_TRUE(std::all_of(t.applied, t.applied + 256, [&](int32_t v) { return v == applied; }))
            << "previous isuse " << previous;
        EXPECT_TRUE(std::all_of(t.fresh, t.fresh + 256, [&](int32_t v) { return v == fresh; }))
            << "previous isuse " << previous;
    }
}

TEST(GammaHandshake, CurveReportedInUseTakesTheAcceptedOffsets) {
    struct Case {
        int32_t isuse, mode, valid;
        bool copies;
    };
    const Case cases[] = {{1, 0, 1, true},  {7, 0, 1, true},  {1, 1, 1, false}, {1, 0, 0, false},
                          {1, 2, 1, false}, {1, 0, 2, false}, {0, 0, 1, false}, {-1, 0, 1, true}};
    for (const Case &c : cases) {
        TestState t;
        for (int i = 0; i < 256; ++i) {
            t.applied[i] = -i;
            t.fresh[i] = i % 13;
        }
        GammaRecord r = request(0, c.isuse);
        r.mode = c.mode;
        r.valid = c.valid;
        gamma_handshake(t.state, r);
        const std::string where = "isuse " + std::to_string(c.isuse) + " mode " + std::to_string(c.mode) +
                                  " valid " + std::to_string(c.valid);
        EXPECT_EQ(t.reverse, c.isuse != 0 ? 1 : 0) << where;
        EXPECT_EQ(t.cur, c.isuse) << where;
        EXPECT_EQ(t.pre, c.isuse) << where;
        EXPECT_EQ(t.applied[12], c.copies ? 12 : -12) << where;
        EXPECT_EQ(t.fresh[12], 12) << where;
    }
}

TEST(GammaReverseMapping, LevelsMappedOutsideTheScaleAreDroppedAndCollisionsAdd) {
    // 1000 pixels at level 10 would set p1 there; an applied offset of 30 maps
    // them to level -20, so they vanish from the statistics.
    TestState t;
    t.reverse = 1;
    t.applied[10] = 30;
    GammaRecord r = request(100, 1);
    Hist h = counts({{10, 1000}, {120, 96344}});
    OutputCapture out;
    gamma_answer(t.state, r, h.data());
    EXPECT_EQ(out.finish(),
              "-----------------------------------gamma 反算-----------------------------------\n");
    const GammaStats kept = stats_of(counts({{120, 96344}}));
    EXPECT_EQ(describe({r.mean, r.stdDev, r.p1, r.p10, r.p50, r.p90, r.p99}), describe(kept));
    EXPECT_EQ(r.p1, 120);

    // Offsets -40 at 200 and 1 at 241 both land on 240; 255 - 256 is dropped too.
    TestState u;
    u.reverse = 1;
    u.applied[200] = -40;
    u.applied[241] = 1;
    u.applied[255] = 256;
    r = request(100, 1);
    h = counts({{100, 90000}, {200, 3000}, {241, 4000}, {255, 344}});
    OutputCapture quiet;
    gamma_answer(u.state, r, h.data());
    quiet.finish();
    const GammaStats moved = stats_of(counts({{100, 90000}, {240, 7000}}));
    EXPECT_EQ(describe({r.mean, r.stdDev, r.p1, r.p10, r.p50, r.p90, r.p99}), describe(moved));
}

// ---------------------------------------------------------------- the step

TEST(GammaStep, OnlyModeOneIsAnswered) {
    for (int32_t mode : {0, 2, -1, INT32_MIN, INT32_MAX}) {
        FakePeer::reset(request(100));
        FakePeer::record.mode = mode;
        TestState t;
        GammaRecord copy{};
        Hist h = ramp(30, 200).hist();
        const Hist before = h;
        OutputCapture out;
        EXPECT_EQ(auto_gamma_step(t.state, copy, h.data(), kFakeIo), kGammaNoRequest);
        EXPECT_EQ(out.finish(), "");
        EXPECT_EQ(FakePeer::writes, 0);
        EXPECT_EQ(0, memcmp(&copy, &FakePeer::record, sizeof copy)) << "the thread's copy is the read record";
        EXPECT_EQ(h, before) << "the histogram is left alone without a request";
    }
}

TEST(GammaStep, RequestIsAnsweredWrittenAndReported) {
    FakePeer::reset(request(120));
    TestState t;
    GammaRecord copy{};
    Hist h = ramp(30, 200).hist();
    OutputCapture out;
    EXPECT_EQ(auto_gamma_step(t.state, copy, h.data(), kFakeIo), kGammaAnswered);
    EXPECT_EQ(out.finish(), "send data ok!!!\n");
    ASSERT_EQ(FakePeer::writes, 1);
    EXPECT_EQ(0, memcmp(&copy, &FakePeer::written, sizeof copy));

    ReferenceGammaState ref;
    GammaRecord expected = request(120);
    Hist refHist = ramp(30, 200).hist();
    ASSERT_TRUE(reference_gamma_frame(ref, expected, refHist.data()));
    expect_same_record(FakePeer::written, expected, "ramp");
    expect_same_state(t, ref, "ramp");
    EXPECT_EQ(FakePeer::written.valid, 1)
        << describe({expected.mean, expected.stdDev, expected.p1, expected.p10, expected.p50, expected.p90,
                     expected.p99});
    for (int i = 0; i < kGammaReservedWords; ++i) {
        EXPECT_EQ(FakePeer::written.reserved[i], 0x5A5A0000 + i);
    }
}

TEST(GammaStep, FailedWriteIsReportedAndFailedReadKeepsThePreviousCopy) {
    FakePeer::reset(request(80));
    FakePeer::writeResult = 0;
    TestState t;
    GammaRecord copy{};
    Hist h = ramp(30, 200).hist();
    {
        OutputCapture out;
        EXPECT_EQ(auto_gamma_step(t.state, copy, h.data(), kFakeIo), kGammaWriteFailed);
        EXPECT_EQ(out.finish(), "send data failed!!!\n");
    }
    // The peer held the lock on the next read: the copy still asks (mode 1),
    // so the frame is answered from it again.
    FakePeer::readResult = 0;
    FakePeer::writeResult = 1;
    FakePeer::record.mode = 0;
    h = ramp(30, 200).hist();
    OutputCapture out;
    EXPECT_EQ(auto_gamma_step(t.state, copy, h.data(), kFakeIo), kGammaAnswered);
    EXPECT_EQ(out.finish(), "send data ok!!!\n");
    EXPECT_EQ(FakePeer::reads, 2);
    EXPECT_EQ(FakePeer::written.mode, 1);
}

TEST(GammaStep, FlatFrameKeepsThePreviousCurveStatisticsAndOffsets) {
    GammaRecord r = request(100);
    for (int i = 0; i < 256; ++i) {
        r.curve[i] = 255 - i;
    }
    r.mean = 11;
    r.stdDev = 12;
    r.p1 = 13;
    r.p10 = 14;
    r.p50 = 15;
    r.p90 = 16;
    r.p99 = 17;
    r.valid = 1;
    FakePeer::reset(r);
    TestState t;
    std::fill(t.fresh, t.fresh + 256, 3);
    GammaRecord copy{};
    Hist h = flat_hist();
    OutputCapture out;
    EXPECT_EQ(auto_gamma_step(t.state, copy, h.data(), kFakeIo), kGammaAnswered);
    out.finish();
    GammaRecord expected = r;
    expected.valid = 0;
    expect_same_record(FakePeer::written, expected, "flat");
    EXPECT_TRUE(std::all_of(t.fresh, t.fresh + 256, [](int32_t v) { return v == 3; }));
}

TEST(GammaStep, OneGreyLevelFrameIsAnsweredButNotValid) {
    // One grey level is no flat histogram (one full bin, the others empty): a
    // curve and statistics are sent, and the zero deviation rejects them.
    GammaRecord r = request(100);
    r.valid = 1;
    FakePeer::reset(r);
    TestState t;
    std::fill(t.fresh, t.fresh + 256, 3);
    GammaRecord copy{};
    Hist h = grey(128).hist();
    OutputCapture out;
    auto_gamma_step(t.state, copy, h.data(), kFakeIo);
    out.finish();
    EXPECT_EQ(FakePeer::written.valid, 0);
    EXPECT_EQ(FakePeer::written.mean, 128);
    EXPECT_EQ(FakePeer::written.stdDev, 0);
    EXPECT_EQ(FakePeer::written.p1, 128);
    EXPECT_EQ(FakePeer::written.p99, 132);
    // The unblended curve is the identity below 128 and 255 from there on;
    // strength 100 takes 35 % of it.
    EXPECT_EQ(FakePeer::written.curve[128], 172);  // 0.35 x 255 + 0.65 x 128 = 172.45
    EXPECT_EQ(FakePeer::written.curve[200], 219);  // 0.35 x 255 + 0.65 x 200 = 219.25
    EXPECT_TRUE(std::all_of(t.fresh, t.fresh + 256, [](int32_t v) { return v == 0; }));
}

// ---------------------------------------------------------------- the reference

namespace {

// Runs `frames` frames of unit and reference side by side, the peer record of
// each frame made by `next` from the last record written back, and compares
// every record written and the whole state after every frame.
template <typename NextRecord>
void run_against_reference(std::mt19937 &rng, int frames, NextRecord next) {
    TestState t;
    ReferenceGammaState ref;
    GammaRecord copy{};
    GammaRecord peer = request(100);
    int answered = 0;
    size_t reported = 0;
    for (int frame = 0; frame < frames; ++frame) {
        peer = next(peer, frame);
        const std::string where = "frame " + std::to_string(frame);
        const Hist source = random_hist(rng);
        Hist h = source;
        Hist refHist = source;
        FakePeer::reset(peer);
        OutputCapture out;  // per frame, so that failures below still show
        const GammaStepResult result = auto_gamma_step(t.state, copy, h.data(), kFakeIo);
        reported += count_of(out.finish(), "send data ok!!!\n");
        GammaRecord refRecord = peer;
        const bool refWrites = reference_gamma_frame(ref, refRecord, refHist.data());
        ASSERT_EQ(result == kGammaAnswered, refWrites) << where;
        expect_same_state(t, ref, where);
        ASSERT_EQ(0, memcmp(h.data(), refHist.data(), sizeof h)) << where << ": histogram after the step";
        if (refWrites) {
            ++answered;
            expect_same_record(FakePeer::written, refRecord, where);
            peer = FakePeer::written;  // the peer sees the answer
        }
        if (::testing::Test::HasFailure()) {
            return;
        }
    }
    EXPECT_EQ(reported, static_cast<size_t>(answered));
    EXPECT_GT(answered, frames / 10);
}

}  // namespace

TEST(GammaReference, PeerConversationsMatchBitForBit) {
    // A well-behaved peer: asks now and then with some strength, takes valid
    // curves into use (isuse 1, mode 0) and drops them again.
    std::mt19937 rng(20240611);
    std::uniform_int_distribution<int> die(0, 9);
    std::uniform_int_distribution<int32_t> strength(-50, 300);
    run_against_reference(rng, 600, [&](GammaRecord r, int) {
        if (r.mode == 1) {
            r.mode = 0;  // answered: apply a valid curve
            if (r.valid == 1) {
                r.isuse = 1;
            }
        } else if (die(rng) < 3) {
            r.mode = 1;
            r.strength = strength(rng);
        } else if (die(rng) == 0) {
            r.isuse = 0;
        }
        return r;
    });
}

TEST(GammaReference, PicturesAtManyStrengthsMatchBitForBit) {
    std::mt19937 rng(7);
    std::vector<Hist> pictures = {ramp(30, 200).hist(), ramp(0, 255).hist(), ramp(120, 220).hist(),
                                  grey(0).hist(), grey(255).hist()};
    for (int n = 0; n < 12; ++n) {
        pictures.push_back(scene(rng, -80.0 + n * 15.0).hist());
    }
    int valid = 0;
    for (const Hist &picture : pictures) {
        for (int32_t strength = -40; strength <= 320; strength += 9) {
            TestState t;
            ReferenceGammaState ref;
            GammaRecord mine = request(strength);
            GammaRecord theirs = mine;
            Hist a = picture;
            Hist b = picture;
            gamma_answer(t.state, mine, a.data());
            reference_gamma_frame(ref, theirs, b.data());
            expect_same_record(mine, theirs, "strength " + std::to_string(strength));
            expect_same_state(t, ref, "strength " + std::to_string(strength));
            valid += mine.valid;
        }
    }
    // The pictures cover both verdicts.
    EXPECT_GT(valid, 0);
    EXPECT_LT(valid, static_cast<int>(pictures.size()) * 41);
}

TEST(GammaReference, HistogramsWhereFloatAndDoublePartWaysMatchBitForBit) {
    // Each of these frames gives a different answer when one step is done in
    // the other precision: the mean's float sum (182, 181 in double), the
    // deviation's (70, 69), the float conversion of a curve level (level 214),
    // and the float exponent (level 171). Strength 286 carries a curve level
    // one to one into the blend.
    const Hist frames[] = {
        counts({{192, 82057}, {91, 5558}, {61, 3740}, {205, 5989}}),
        counts({{147, 48684}, {7, 48660}}),
        counts({{91, 12687}, {101, 1939}, {220, 42937}, {238, 32222}, {115, 7559}}),
        counts({{102, 77561}, {234, 19783}}),
    };
    for (const Hist &frame : frames) {
        for (int32_t strength : {286, 100}) {
            TestState t;
            ReferenceGammaState ref;
            GammaRecord mine = request(strength);
            GammaRecord theirs = mine;
            Hist a = frame;
            Hist b = frame;
            gamma_answer(t.state, mine, a.data());
            reference_gamma_frame(ref, theirs, b.data());
            expect_same_record(mine, theirs, "strength " + std::to_string(strength));
        }
    }
    EXPECT_EQ(stats_of(frames[0]).mean, 182);
    EXPECT_EQ(stats_of(frames[1]).stdDev, 70);
}

TEST(GammaFuzz, GarbageRecordsNeverBreakTheStep) {
    // Anything in any field: the step must stay within its tables and agree
    // with the reference, which also checks that no float leaves the int32
    // range before a truncation. Run it under the sanitizers.
    std::mt19937 rng(99);
    std::uniform_int_distribution<int32_t> any(INT32_MIN, INT32_MAX);
    std::uniform_int_distribution<int> die(0, 9);
    const int32_t edges[] = {INT32_MIN, INT32_MIN + 1, -1, 0, 1, 285, 286, INT32_MAX - 1, INT32_MAX};
    run_against_reference(rng, 1500, [&](GammaRecord r, int) {
        int32_t *words = reinterpret_cast<int32_t *>(&r);
        for (size_t w = 0; w < sizeof r / 4; ++w) {
            if (die(rng) < 3) {
                words[w] = any(rng);
            }
        }
        r.mode = die(rng) < 6 ? 1 : (die(rng) < 5 ? 0 : any(rng));
        r.isuse = die(rng) < 4 ? 1 : (die(rng) < 6 ? 0 : any(rng));
        r.valid = die(rng) < 5 ? 1 : any(rng);
        r.strength = die(rng) < 5 ? edges[die(rng) % 9] : any(rng);
        return r;
    });
}

// ---------------------------------------------------------------- the segment

TEST(GammaSegment, AnswerGoesThroughTheSegmentAndSetsTheWrittenFlag) {
    ipc_runtime_dir();
    ipc_remove_segment();
    struct Cleanup {
        ~Cleanup() {
            if (g_msg != nullptr) {
                shm_track_map_detach();
            }
            ipc_remove_segment();
        }
    } cleanup;
    ASSERT_NE(shm_track_map_open(), nullptr);
    const GammaRecord ask = request(100);
    ASSERT_EQ(shm_track_map_write(&ask), 1);
    g_msg->written = 0;  // as the peer leaves it when asking

    TestState t;
    GammaRecord copy{};
    Hist h = ramp(30, 200).hist();
    OutputCapture out;
    EXPECT_EQ(auto_gamma_step(t.state, copy, h.data()), kGammaAnswered);
    EXPECT_EQ(out.finish(), "send data ok!!!\n");
    EXPECT_EQ(g_msg->written, 1);

    ReferenceGammaState ref;
    GammaRecord expected = ask;
    Hist refHist = ramp(30, 200).hist();
    reference_gamma_frame(ref, expected, refHist.data());
    GammaRecord inSegment;
    memcpy(&inSegment, g_msg->data, sizeof inSegment);
    expect_same_record(inSegment, expected, "segment");
}
