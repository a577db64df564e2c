// The prediction check and the recording it reads: the camera's packets
// frame by frame, its commands, and its own time per analysed frame.
#include <gtest/gtest.h>

#include "camera_recording.h"
#include "prediction.h"
#include "recording_builder.h"
#include "temp_dir.h"

namespace {

using namespace replay;
using recording::Kind;

const Packet kZoom = {0x81, 0x01, 0x04, 0x47, 0, 5, 8, 0xe, 0xff};
const Packet kZoomOther = {0x81, 0x01, 0x04, 0x47, 0, 5, 8, 5, 0xff};
const Packet kPanTilt = {0x81, 0x01, 0x06, 0x02, 0x0f, 0x0a, 0, 1, 1, 2, 0, 0, 0, 8, 0xff};

CameraRecording two_frames_with_a_move() {
    CameraRecording rec;
    rec.frames.resize(3);
    rec.frames[1].timeUs = 500000;
    rec.frames[1].packets = {kZoom, kPanTilt};
    return rec;
}

// The PC's side: frames with the sends its log shows, camera_sim's packets in order.
void pc_run(const std::vector<std::vector<int>> &sends, const std::vector<Packet> &received,
            DaemonLog *daemon, SimLog *sim) {
    for (const std::vector<int> &frameSends : sends) {
        TakenFrame frame;
        frame.sends = frameSends;
        frame.faces = {{100, 60, 50, 70, 0.9f}};
        daemon->frames.push_back(frame);
    }
    for (const Packet &packet : received) {
        SimRx rx;
        rx.bytes = packet;
        sim->rx.push_back(rx);
    }
}

TEST(Prediction, ComparesThePacketsFrameByFrameAndNamesTheFirstDifference) {
    struct Row {
        const char *name;
        std::vector<std::vector<int>> sends;
        std::vector<Packet> received;
        int frame;  // -1: identical
        std::string line;
    } rows[] = {
        {"identical", {{}, {9, 15}, {}}, {kZoom, kPanTilt}, -1, "identical: 3 frames, 1 moves"},
        {"another zoom",
         {{}, {9, 15}, {}},
         {kZoomOther, kPanTilt},
         2,
         "differs at recorded frame 2 (0.50 s): the packets differ; camera sent: 81 01 04 47 00 05 08 0e ff, "
         "81 01 06 02 0f 0a 00 01 01 02 00 00 00 08 ff; PC sent: 81 01 04 47 00 05 08 05 ff, 81 01 06 02 0f "
         "0a "
         "00 01 01 02 00 00 00 08 ff; PC faces: (100, 60, 50, 70) 0.900"},
        // A failed send is no packet; the move then sits a frame late.
        {"a frame late", {{}, {-1}, {9, 15}}, {kZoom, kPanTilt}, 2, ""},
        // A send that failed sent nothing.
        {"a failed send", {{-1}, {9, 15}, {}}, {kZoom, kPanTilt}, -1, "identical: 3 frames, 1 moves"},
        {"fewer frames", {{}, {9, 15}}, {kZoom, kPanTilt}, 3, ""},
        {"sent before the first frame", {{}, {9, 15}, {}}, {kZoom, kZoom, kPanTilt}, 0, ""},
    };
    for (const Row &row : rows) {
        DaemonLog daemon;
        SimLog sim;
        pc_run(row.sends, row.received, &daemon, &sim);
        const Prediction p = check_prediction(two_frames_with_a_move(), daemon, sim);
        EXPECT_EQ(p.identical, row.frame < 0) << row.name;
        EXPECT_EQ(p.frame, row.frame) << row.name;
        if (!row.line.empty()) {
            EXPECT_EQ(prediction_line(p), row.line) << row.name;
        }
        // Only the PC's own build on the camera's engine can blame rounding.
        EXPECT_EQ(rounding_hint(p, "mnn", false).empty(), p.identical) << row.name;
        EXPECT_EQ(rounding_hint(p, "opencv", false), "") << row.name;
        EXPECT_EQ(rounding_hint(p, "mnn", true), "") << row.name;
    }
}

TEST(CameraRecording, GivesEachFrameItsCommandAndPacketsAndTimesTheAnalysedFrames) {
    TempDir dir;
    RecordingBuilder b;
    b.datagram(Kind::CameraPacket, 0, kZoom);
    // Auto framing on from the start: nine warm-up frames and the first
    // analysed one 100 ms apart, then analysed frames 200, 220 and 240 ms
    // apart; a stop between the last two.
    b.datagram(Kind::Control, 0, {1, 1});
    uint64_t t = 1000;
    for (int i = 0; i < 10; ++i, t += 100000) {
        b.frame(t, {});
    }
    for (const uint64_t gap : {200000, 220000, 240000}) {
        b.frame(t, {}).datagram(Kind::CameraPacket, t + 1, kPanTilt);
        t += gap;
    }
    b.datagram(Kind::Control, t - 1, {1, 0}).frame(t, {}).datagram(Kind::Control, t + 5, {1});
    b.end().write(dir.file("rec"));
    CameraRecording rec;
    std::string error;
    ASSERT_TRUE(read_camera_recording(dir.file("rec"), &rec, &error)) << error;
    ASSERT_EQ(rec.frames.size(), 14u);
    EXPECT_EQ(rec.startPackets, std::vector<Packet>{kZoom});
    EXPECT_EQ(rec.frames[0].mode, Mode::Run);
    EXPECT_EQ(rec.frames[10].packets, std::vector<Packet>{kPanTilt});
    EXPECT_EQ(rec.frames[13].mode, Mode::Stop);
    EXPECT_EQ(rec.controls, 3);
    // The analysed frames 10 to 12 to the next: 100, 200 and 220 ms; the
    // warm-up's are not analysed, and the stop cuts the last.
    EXPECT_EQ(rec.frameTimeMs.count, 3);
    EXPECT_DOUBLE_EQ(rec.frameTimeMs.median, 200.0);
    EXPECT_TRUE(rec.ended);
    EXPECT_EQ(control_mode({1, 2}), Mode::Off);
    EXPECT_EQ(control_mode({1}), Mode::Stop);
}

}  // namespace
