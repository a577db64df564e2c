// facedet_replay's inputs and figures: its reading of the daemon's colour
// console with other threads' lines in between, bad truth files refused with
// their line, and the framing figures of small hand-made runs. The page made
// from them is checked end to end.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "framing_score.h"
#include "replay_logs.h"
#include "replay_report.h"
#include "truth_file.h"

using namespace replay;

namespace {

// One INFO line as console_log prints it: the colour reset follows the line end.
std::string info(const std::string &file, int line, const std::string &message) {
    return "\033[1;34m[2024-05-02 10:11:12:345] [INFO] [" + file + ": " + std::to_string(line) + "] " +
           message + "\n\033[0m";
}

std::string frame_header(int n) {
    return info("get_stream_thread.cpp", 180, "MsgBuf[0]=1 , MsgBuf[1]=1 ") +
           info("get_stream_thread.cpp", 200, "Algorithm Version:1.0") +
           info("get_stream_thread.cpp", 203,
                "--------------frameNumber = " + std::to_string(n) + "-----------------");
}

// The timing line of one stage.
std::string stage(const char *name, int ms, const char *end = "") {
    return info("get_stream_thread.cpp", 160,
                std::string(" ******** ") + name + " time =[" + std::to_string(ms) + "] ms********" + end);
}

// A frame with one face that decides a move, as the daemon prints it.
std::string moving_frame(int n) {
    return frame_header(n) + stage("get frame", 0) + stage("autogamma", 1) +
           info("box_filter.cpp", 52, "face box (x, y, w, h) = (180, 60, 48, 60), score = 0.981234") +
           // The selection's printf has no line end: it lands in front of the next line.
           "/n/n/n ***************** faceNum = 1 ************ " +
           info("target_selection.cpp", 72, "********** faceNum=1 **************") +
           info("target_selection.cpp", 160,
                "**************** personCenterRect [727, 138, 221, 830] *****************") +
           info("move_decision.cpp", 230, "******** change_z = 1, abs > 0.4 ***********") +
           info("move_decision.cpp", 280, "******************** panPoint = -122 *******************") +
           info("move_decision.cpp", 282, "******************** tiltPoint = 0 ******************") +
           info("move_decision.cpp", 284, "******************** zoomPoint = 1475 ******************") +
           stage("invoke", 9) + stage("strategies", 0) + stage("all", 11, "\n\n");
}

ScoreFrame at(long index, double seconds, double pan, double width) {
    ScoreFrame f;
    f.sourceIndex = index;
    f.tUs = static_cast<int64_t>(seconds * 1e6);
    f.view.pan = pan;
    f.view.width = width;
    f.view.height = width * 9 / 16;
    return f;
}

}  // namespace

TEST(ReplayDaemonLog, ReadsWarmUpAnalysedAndMovingFramesBetweenOtherThreadsLines) {
    std::string out = "faceDet starting!\n(QMT_Video_Stream_Start 2580)exec function pass\n";
    for (int n = 1; n <= 9; ++n) {
        out += frame_header(n);
    }
    // The socket thread and the camera thread print while a frame is analysed.
    std::string moving = moving_frame(10);
    moving.insert(moving.find("\033[1;34m[2024-05-02 10:11:12:345] [INFO] [move_decision.cpp: 282]"),
                  "MsgBuf[0]= 1, MsgBuf[1]= 1 \nret == 0\n\033[1;32m[2024-05-02 10:11:12:346] [DEBUG] "
                  "[visca.cpp:88] reply 90 41 ff\n\033[0m");
    const std::string faceless = frame_header(11) + stage("get frame", 0) +
                                 "/n/n/n ***************** faceNum = 0 ************ " +
                                 stage("strategies", 0);
    const DaemonLog log = parse_daemon_log(
        out + moving + faceless,
        "host platform: camera pace, camera time 160.0 ms per analysed frame, 1.7 ms per frame taken but not "
        "analysed\n");
    EXPECT_EQ(log.frameCostMs, 160.0);
    EXPECT_EQ(parse_daemon_log(out).frameCostMs, -1) << "no cost line, no cost";
    // By the daemon's own clock: one frame's "all" of 11 ms, 11.5 on average.
    EXPECT_DOUBLE_EQ(summarise(RunInfo(), log, {}, SimLog(), {}).analysedFps, 1000 / 11.5);
    ASSERT_EQ(log.frames.size(), 11u);
    EXPECT_FALSE(log.cutAtEnd);
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(log.frames[i].frameNumber, i + 1);
        EXPECT_FALSE(log.frames[i].analysed) << i;
        EXPECT_EQ(log.frames[i].mode, Mode::Run);
    }
    const TakenFrame &m = log.frames[9];
    EXPECT_TRUE(m.analysed && m.framingRan && m.hasPerson && m.moved);
    ASSERT_EQ(m.faces.size(), 1u);
    EXPECT_EQ((std::vector<int>{m.faceNum, m.faces[0].x, m.faces[0].h, m.person.x, m.person.h, m.pan, m.tilt,
                                m.zoom, m.invokeMs, m.allMs, m.autogammaMs}),
              (std::vector<int>{1, 180, 60, 727, 830, -122, 0, 1475, 9, 11, 1}));
    EXPECT_EQ(m.decisionTrace, "******** change_z = 1, abs > 0.4 ***********");
    EXPECT_EQ(m.sends, (std::vector<int>{0}));
    EXPECT_FLOAT_EQ(m.faces[0].score, 0.981234f);
    EXPECT_TRUE(log.streamStarted);
    const TakenFrame &f = log.frames[10];
    EXPECT_TRUE(f.framingRan);
    EXPECT_EQ(f.faceNum, 0);
    EXPECT_FALSE(f.moved || f.hasPerson || !f.faces.empty());

    // A line at a time, as a watcher reads output that grows: the same frames,
    // each handed over once the next one begins.
    DaemonLogReader reader;
    std::vector<TakenFrame> streamed;
    std::istringstream lines(out + moving + faceless);
    for (std::string line; std::getline(lines, line);) {
        reader.line(line);
        for (TakenFrame &done : reader.take_completed()) {
            streamed.push_back(std::move(done));
        }
    }
    EXPECT_EQ(streamed.size(), 10u) << "the last frame is still open";
    streamed.push_back(reader.finish().frames.back());
    ASSERT_EQ(streamed.size(), log.frames.size());
    EXPECT_EQ(streamed[9].zoom, 1475);
    EXPECT_EQ(streamed[10].faceNum, 0);

    // A camera's rotated log begins inside a frame: it is read from the first whole one.
    const std::string all = out + moving + faceless;
    const DaemonLog cut = parse_daemon_log(all.substr(all.find("abs > 0.4")));
    ASSERT_EQ(cut.frames.size(), 1u);
    EXPECT_EQ(cut.frames[0].frameNumber, 11);
    EXPECT_FALSE(cut.streamStarted);
}

TEST(ReplayTruth, BadFilesAreRefusedNamingTheLine) {
    const std::string header = "frame,person,x,y,w,h\n";
    struct Case {
        std::string text;
        long sourceFrames;
        std::string error;  // empty: accepted
    } cases[] = {
        {"# size=416x234\n# frames=3\n# every=2\n# any comment\n" + header +
             "0,0,1,2,3,4\n\n2,1,0,0,416,234\n",
         3, ""},
        {"person,frame,h,w,y,x\n0,4,5,5,5,5\n", -1, ""},
        {"", 3, "line 0: no header"},
        {"frame,person,x,y,w,h,score\n", 3, "line 1: unknown column 'score'"},
        {"frame,person,x,y,w\n", 3, "line 1: no column 'h'"},
        {header + "0,0,1,2,3\n", 3, "line 2: 5 fields"},
        {header + "0,0,1,2,3,x4\n", 3, "line 2: h 'x4' is not a whole number"},
        {header + "0,0,-1,2,3,4\n", 3, "line 2: box -1,2 3x4 is not inside"},
        {header + "0,0,400,2,17,4\n", 3, "line 2: box 400,2 17x4"},
        {header + "0,0,1,2,0,4\n", 3, "line 2: box"},
        {"# size=640x360\n" + header, 3, "line 1: boxes are in a 640x360 frame"},
        {"# frames=2\n" + header, 3, "line 1: the labels cover 2 frames but the source has 3"},
        {header + "3,0,1,2,3,4\n", 3, "line 2: frame 3 is past the last labelled frame 2"},
        {"# frames=5\n" + header + "5,0,1,2,3,4\n", -1, "line 3: frame 5 is past"},
        {"# every=2\n" + header + "1,0,1,2,3,4\n", 3, "line 3: frame 1 is not a multiple of every=2"},
        {header + "2,0,1,2,3,4\n1,0,1,2,3,4\n", 3, "line 3: frame 1 comes after frame 2"},
        {header + "1,0,1,2,3,4\n1,0,5,2,3,4\n", 3, "line 3: person 0 appears twice in frame 1"},
        {header + "# every=2\n", 3, "line 2: 'every=' must come before the header"},
    };
    Truth truths[std::size(cases)];
    for (size_t i = 0; i < std::size(cases); ++i) {
        const Case &c = cases[i];
        std::string error;
        EXPECT_EQ(parse_truth(c.text, c.sourceFrames, &truths[i], &error), c.error.empty())
            << c.text << error;
        EXPECT_EQ(error.rfind(c.error, 0), 0u) << c.text << "\n got: " << error;
    }
    const Truth &all = truths[0], &byName = truths[1];
    EXPECT_EQ(all.frames * 10 + all.every, 32);
    ASSERT_TRUE(all.faces.size() == 2 && byName.faces.size() == 1);
    EXPECT_EQ(all.faces[1].box.x + all.faces[1].box.w + all.faces[1].frame, 418);
    EXPECT_EQ(byName.faces[0].box.x + byName.faces[0].frame * 10, 45) << "columns are found by name";
}

TEST(ReplayScore, FiguresOfSmallRuns) {
    // A 20x20 face at the frame's centre, one at its left edge; 1920x1080 scale 4.615 x 4.615.
    const Box centre{198, 107, 20, 20}, left{10, 107, 20, 20};
    ScoreFrame chosenLeft = at(0, 0, 0, 1920);
    chosenLeft.hasPerson = true;
    chosenLeft.person = Box{0, 400, 200, 300};
    const ScoreMove away{1500000, false, 800, 0, 480}, onFace{2000000, false, 0, 0, 960};
    struct Case {
        const char *what;
        std::vector<TruthFace> faces;
        std::vector<ScoreFrame> frames;
        std::vector<ScoreMove> moves;
        std::vector<std::optional<double>> expected;  // in view, centre third, offset, height, moves/min,
                                                      // reversals, entry, exit, target changes/min
    } cases[] = {
        {"the full view holds the centred face",
         {{0, 0, centre}},
         {at(0, 0, 0, 1920)},
         {},
         {1.0, 1.0, 0.0, 20.0 / 234, std::nullopt, std::nullopt, std::nullopt, std::nullopt, std::nullopt}},
        {"a close view beside the face cuts it",
         {{0, 0, centre}},
         {at(0, 0, -600, 480)},
         {},
         {0.0, 0.0, 1.25, 20.0 / 234 * 1080 / 270, std::nullopt, std::nullopt, std::nullopt, std::nullopt,
          std::nullopt}},
        {"the daemon's choice is followed, not the face nearest the centre",
         {{0, 0, left}, {0, 1, centre}, {1, 0, left}, {1, 1, centre}},
         {chosenLeft, at(1, 60, 0, 1920)},
         {},
         {1.0, 0.5, (960 - 92.3) / 1920 / 2, 20.0 / 234, 0.0, std::nullopt, std::nullopt, std::nullopt, 1.0}},
        {"right then left is a reversal, a zoom alone is not",
         {},
         {at(0, 0, 0, 1920), at(1, 60, 0, 1920)},
         {{1, false, 100, 0, 1000},
          {2, false, -100, 0, 1000},
          {3, false, -100, 0, 800},
          {4, false, -100, 0, 800}},
         {std::nullopt, std::nullopt, std::nullopt, std::nullopt, 3.0, 0.5, std::nullopt, std::nullopt,
          std::nullopt}},
        {"an entry is framed by the first move that holds the face; an exit ends in the full view",
         {{1, 0, centre}, {2, 0, centre}},
         {at(0, 0, 0, 1920), at(1, 1, 0, 1920), at(2, 2, 0, 1920), at(3, 3, 0, 1920), at(4, 4, 0, 1920)},
         {away, onFace, {4000000, true, 0, 0, 1920}},
         {1.0, 1.0, 0.0, 20.0 / 234, 45.0, 0.5, 1.0, 1.0, std::nullopt}},
    };
    for (const Case &c : cases) {
        Truth truth;
        truth.faces = c.faces;
        const FramingScore s = score_framing(truth, c.frames, c.moves, -1);
        const std::optional<double> got[] = {
            s.faceInView,       s.faceInCentreThird, s.centreOffsetMedian,
            s.faceHeightMedian, s.movesPerMinute,    s.reversalShare,
            s.entryToFrameS,    s.exitToFullViewS,   s.targetChangesPerMinute};
        EXPECT_EQ(s.framesScored, static_cast<int>(c.frames.size())) << c.what;
        for (size_t i = 0; i < c.expected.size(); ++i) {
            ASSERT_EQ(got[i].has_value(), c.expected[i].has_value()) << c.what << ", figure " << i;
            if (got[i]) {
                EXPECT_NEAR(*got[i], *c.expected[i], 0.02) << c.what << ", figure " << i;
            }
        }
    }
}

// A frame the daemon dropped is still seen, and still follows the last choice.
TEST(ReplayScore, DroppedFramesAreScoredWithTheLastChoice) {
    DaemonLog daemon;
    daemon.frames.resize(2);
    daemon.frames[0].hasPerson = true;
    daemon.frames[0].faceNum = 1;
    daemon.frames[0].person = Box{100, 200, 300, 400};
    daemon.frames[0].moved = true;
    daemon.frames[1].faceNum = 0;
    const std::vector<FrameLogEntry> log = {
        {0, 0, true, 0, 1}, {1, 33333, false, 0, 1}, {2, 66667, true, 0, 1}};
    std::vector<ScoreFrame> frames;
    std::vector<ScoreMove> moves;
    score_inputs(daemon, log, SimLog(), &frames, &moves);
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ((std::vector<bool>{frames[0].hasPerson, frames[1].hasPerson, frames[2].hasPerson}),
              (std::vector<bool>{true, true, false}));
    EXPECT_EQ(frames[1].person.w, 300);
    EXPECT_EQ(frames[1].tUs, 33333);
    EXPECT_EQ(moves.size(), 1u);

    // Between the camera's samples (a frame's cost apart at the camera's
    // pace) the head is where its steady move has brought it by then.
    SimState from, to;
    from.moving = true;
    to.tUs = 200000;
    to.pan = 100;
    to.width = 1000;
    EXPECT_EQ(sim_state_at({from, to}, 50000).pan, 25);
    EXPECT_EQ(sim_state_at({from, to}, 50000).width, 1920 - 920 / 4);
    EXPECT_EQ(sim_state_at({from, to}, 250000).pan, 100);
    from.moving = false;
    EXPECT_EQ(sim_state_at({from, to}, 50000).pan, 0) << "a head at rest stays until the next sample";
}
