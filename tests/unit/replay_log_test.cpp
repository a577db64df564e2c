// facedet_replay's log reading on recorded excerpts (the daemon's colour
// console with other threads' lines in between, logs cut by a killed process,
// the frame log) and the figures, JSON and page made from them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "replay_log.h"
#include "replay_report.h"

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

std::string stages_before_invoke(int getMs, int gammaMs) {
    return info("get_stream_thread.cpp", 210,
                " ******** get frame time =[" + std::to_string(getMs) + "] ms********") +
           info("get_stream_thread.cpp", 215,
                " ******** autogamma time =[" + std::to_string(gammaMs) + "] ms********");
}

std::string stages_after_invoke(int invokeMs, int allMs) {
    return info("get_stream_thread.cpp", 160,
                " ******** invoke time =[" + std::to_string(invokeMs) + "] ms********") +
           info("get_stream_thread.cpp", 168, " ******** strategies time =[0] ms********") +
           info("get_stream_thread.cpp", 171,
                " ******** all time =[" + std::to_string(allMs) + "] ms********\n\n");
}

// A frame with one face that decides a move, as the daemon prints it.
std::string moving_frame(int n) {
    return frame_header(n) + stages_before_invoke(0, 1) +
           info("box_filter.cpp", 52, "face box (x, y, w, h) = (180, 60, 48, 60), score = 0.981234") +
           // The selection's printf has no line end: it lands in front of the next line.
           "/n/n/n ***************** faceNum = 1 ************ " +
           info("target_selection.cpp", 72, "********** faceNum=1 **************") +
           info("target_selection.cpp", 160,
                "**************** personCenterRect [727, 138, 221, 830] *****************") +
           info("move_decision.cpp", 280, "******************** panPoint = -122 *******************") +
           info("move_decision.cpp", 282, "******************** tiltPoint = 0 ******************") +
           info("move_decision.cpp", 284, "******************** zoomPoint = 1475 ******************") +
           stages_after_invoke(9, 11);
}

std::string faceless_frame(int n) {
    return frame_header(n) + stages_before_invoke(0, 0) +
           "/n/n/n ***************** faceNum = 0 ************ " + stages_after_invoke(7, 8);
}

}  // namespace

TEST(ReplayDaemonLog, ReadsWarmUpAnalysedAndMovingFramesBetweenOtherThreadsLines) {
    std::string out = "faceDet starting!\n";
    for (int n = 1; n <= 9; ++n) {
        out += frame_header(n);
    }
    // The socket thread and the camera thread print while a frame is analysed.
    std::string moving = moving_frame(10);
    moving.insert(moving.find("\033[1;34m[2024-05-02 10:11:12:345] [INFO] [move_decision.cpp: 282]"),
                  "MsgBuf[0]= 1, MsgBuf[1]= 1 \nret == 0\n\033[1;32m[2024-05-02 10:11:12:346] [DEBUG] "
                  "[visca.cpp:88] reply 90 41 ff\n\033[0m");
    const DaemonLog log = parse_daemon_log(out + moving + faceless_frame(11));
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
    const TakenFrame &f = log.frames[10];
    EXPECT_TRUE(f.framingRan);
    EXPECT_EQ(f.faceNum, 0);
    EXPECT_FALSE(f.moved || f.hasPerson || !f.faces.empty());
}

TEST(ReplayDaemonLog, CutLastLineIsLeftOutAndReported) {
    const std::string whole = moving_frame(10);
    // The process was killed in the middle of the zoomPoint line.
    const size_t at = whole.find("zoomPoint = 1475");
    ASSERT_NE(at, std::string::npos);
    const DaemonLog cutMove = parse_daemon_log(whole.substr(0, at + 13));
    ASSERT_EQ(cutMove.frames.size(), 1u);
    EXPECT_TRUE(cutMove.cutAtEnd);
    EXPECT_FALSE(cutMove.frames[0].moved) << "half a triple is no move";

    // Cut inside a face box: no box from half its numbers.
    const std::string boxed =
        frame_header(12) + stages_before_invoke(0, 0) +
        "\033[1;34m[2024-05-02 10:11:12:345] [INFO] [box_filter.cpp: 52] face box (x, y, w, h) "
        "= (180, 60, 4";
    const DaemonLog cutBox = parse_daemon_log(boxed);
    ASSERT_EQ(cutBox.frames.size(), 1u);
    EXPECT_TRUE(cutBox.frames[0].faces.empty());
    EXPECT_TRUE(cutBox.cutAtEnd);
}

TEST(ReplayDaemonLog, StoppedFramesAndPlatformErrors) {
    std::string out = info("get_stream_thread.cpp", 180, "MsgBuf[0]=1 , MsgBuf[1]=0 ") +
                      info("get_stream_thread.cpp", 203, "--------------frameNumber = 10-----------------") +
                      stages_before_invoke(0, 0) +
                      info("get_stream_thread.cpp", 140, "\n\n\nstop Auto_Frame detect!\n\n\n");
    const DaemonLog log =
        parse_daemon_log(out, "host platform: cannot open FACEDET_SOURCE 'x.mp4': no frames\n");
    ASSERT_EQ(log.frames.size(), 1u);
    EXPECT_EQ(log.frames[0].mode, Mode::Stop);
    EXPECT_TRUE(log.frames[0].stopFullView);
    EXPECT_FALSE(log.frames[0].framingRan);
    EXPECT_TRUE(log.cannotOpenSource);
    EXPECT_FALSE(parse_daemon_log(out, "").cannotOpenSource);
}

TEST(ReplaySummary, FiguresJsonAndPage) {
    std::string out;
    for (int n = 1; n <= 9; ++n) {
        out += frame_header(n);
    }
    out += faceless_frame(10) + moving_frame(11) + faceless_frame(12);
    const DaemonLog daemon = parse_daemon_log(out);
    // 13 delivered, one dropped: the taken ones match the daemon's frames by
    // order. Only whole lines count.
    std::string frameLog = "garbage line\n";
    for (int i = 0; i < 13; ++i) {
        frameLog += std::to_string(i) + " " + std::to_string(1000000 + i * 500000) +
                    (i == 5 ? " dropped" : " taken") + " 0.0\n";
    }
    frameLog += "14 1343";
    const std::vector<FrameLogEntry> frames = parse_frame_log(frameLog);
    RunInfo run;
    run.source = "clip <1>.mp4";
    run.complete = false;
    run.reason = "daemon killed after 60 s";
    const Summary s = summarise(run, daemon, frames, SimLog{}, {});
    EXPECT_EQ(s.delivered, 13);
    EXPECT_EQ(s.taken, 12);
    EXPECT_EQ(s.dropped, 1);
    EXPECT_EQ(s.analysed, 3);
    EXPECT_EQ(s.framingFrames, 3);
    EXPECT_EQ(s.moves, 1);
    EXPECT_EQ(s.facesMax, 1);
    EXPECT_NEAR(s.facesMean, 1.0 / 3, 1e-9);
    EXPECT_EQ(s.faceHistogram[0], 2);
    EXPECT_EQ(s.faceHistogram[1], 1);
    // The move came with taken frame 11, delivered frame 11 (after the drop): 5.5 s after the first.
    EXPECT_NEAR(s.firstMoveSeconds, 5.5, 1e-9);
    EXPECT_NEAR(s.durationSeconds, 6.0, 1e-9);
    EXPECT_NEAR(s.movesPerMinute, 10.0, 1e-9);
    EXPECT_DOUBLE_EQ(s.invoke.median, 7);
    const Spread spread = spread_of({5, 1, 3, -1, 2, 4});  // missing lines (-1) are left out
    EXPECT_EQ((std::vector<double>{double(spread.count), spread.median, spread.p95}),
              (std::vector<double>{5, 3, 5}));

    const std::string json = summary_json(s);
    EXPECT_NE(json.find("\"complete\": false"), std::string::npos);
    EXPECT_NE(json.find("\"reason\": \"daemon killed after 60 s\""), std::string::npos);
    EXPECT_NE(json.find("\"analysed\": 3"), std::string::npos);
    EXPECT_NE(json.find("\"moves\": 1,"), std::string::npos);

    const std::string html = report_html(s, true, true);
    EXPECT_NE(html.find("<video id=\"replay\" src=\"replay.mp4\""), std::string::npos);
    EXPECT_NE(html.find("<img id=\"timeline\" src=\"timeline.png\""), std::string::npos);
    EXPECT_NE(html.find("incomplete: daemon killed after 60 s"), std::string::npos);
    EXPECT_NE(html.find("clip &lt;1&gt;.mp4"), std::string::npos) << "names are escaped";
    EXPECT_EQ(html.find("http"), std::string::npos) << "nothing from the network";
    EXPECT_EQ(html.find("<script"), std::string::npos);

    // A run with frames but not one face says so.
    const Summary none = summarise(run, parse_daemon_log(faceless_frame(10)), frames, SimLog{}, {});
    EXPECT_NE(report_html(none, true, true).find("No face was found"), std::string::npos);
    EXPECT_NE(summary_json(none).find("\"no_face_found\": true"), std::string::npos);
}
