// facedet_replay's reading of the daemon's colour console, with other
// threads' lines in between; the figures and page made from it are checked
// end to end.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "replay_log.h"

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
           info("move_decision.cpp", 280, "******************** panPoint = -122 *******************") +
           info("move_decision.cpp", 282, "******************** tiltPoint = 0 ******************") +
           info("move_decision.cpp", 284, "******************** zoomPoint = 1475 ******************") +
           stage("invoke", 9) + stage("strategies", 0) + stage("all", 11, "\n\n");
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
    const std::string faceless = frame_header(11) + stage("get frame", 0) +
                                 "/n/n/n ***************** faceNum = 0 ************ " +
                                 stage("strategies", 0);
    const DaemonLog log = parse_daemon_log(out + moving + faceless);
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
