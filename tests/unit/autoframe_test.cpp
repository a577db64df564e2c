// Auto framing: the rectangle geometry with the integer behaviour each
// operation keeps on purpose; target selection (first acquisition by nearness,
// re-identification by the weighted score, the console and trace lines); the
// pan/tilt/zoom move decision (framing, bands, persistence limits, the two
// threshold sets, the no-face timeout and the trace texts).
#include <ostream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "faceDet/move_decision.h"
#include "faceDet/rect.h"
#include "faceDet/target_selection.h"
#include "output_capture.h"

// gtest prints Rect_t through this when a comparison fails.
void PrintTo(const Rect_t &r, std::ostream *os) {
    *os << "[" << r.x << ", " << r.y << ", " << r.width << ", " << r.height << "]";
}

namespace {

// The messages of the INFO lines of the console log in captured output, in
// order, without time stamp, colour and source.
std::vector<std::string> info_messages(const std::string &out) {
    std::vector<std::string> messages;
    const std::string tag = "[INFO] [faceDet: ";
    size_t pos = 0;
    while ((pos = out.find(tag, pos)) != std::string::npos) {
        const size_t start = out.find("] ", pos + tag.size()) + 2;
        const size_t end = out.find("\n\033[0m", start);
        messages.push_back(out.substr(start, end - start));
        pos = end;
    }
    return messages;
}

// Runs one selection and returns what it printed.
std::string select(TargetSelectionState &s, const std::vector<Rect_t> &faces,
                   const std::vector<double> &scores) {
    OutputCapture capture;
    select_target(s, faces, scores.data());
    return capture.finish();
}

// The camera last sent to a framing of width p centred at (x, y), judged at rest.
MoveDecisionState sent_to(int32_t p, int32_t x, int32_t y) {
    MoveDecisionState s;
    s.prev_width = p;
    s.prev_x = x;
    s.prev_y = y;
    return s;
}

Rect_t framing(int32_t x, int32_t y, int32_t w) {
    return {x, y, w, w * 9 / 16};
}

struct Outcome {
    int decision;
    std::vector<std::string> messages;
};

Outcome decide(MoveDecisionState &s, const Rect_t &f, int mode = 1) {
    OutputCapture capture;
    const int d = change_decision(s, mode, f);
    return {d, info_messages(capture.finish())};
}

// One frame with this person through the whole step.
Outcome frame_with(MoveDecisionState &s, TargetSelectionState &sel, const Rect_t &person) {
    sel.faceNum = 1;
    sel.personCenterRect = person;
    OutputCapture capture;
    const MoveRequest r = move_decision_step(s, sel);
    return {static_cast<int>(r), info_messages(capture.finish())};
}

}  // namespace

TEST(Rect, AreasKeepTheirIntegerBehaviour) {
    const Rect_t a = {0, 0, 100, 100};
    struct Case {
        Rect_t other;
        int32_t intersection, overlap, unionArea;
    } cases[] = {
        {{50, 60, 100, 100}, 2000, 2000, 18000}, {{10, 10, 20, 20}, 400, 400, 10000},  // contained
        {{101, 0, 100, 100}, 0, 0, 20000},                                             // apart
        {{100, 0, 100, 100}, 0, 0, 20000},                                             // touching
        {{0, 0, 100, 0}, 0, 0, 10000},                                                 // zero side
        {{5, 5, -3, 10}, 30, -30, 10000},  // a negative side counts by its size, the overlap keeps the sign
    };
    for (const Case &c : cases) {
        EXPECT_EQ(rect_intersection_area(a, c.other), c.intersection) << c.other.x;
        EXPECT_EQ(rect_overlap_area(a, c.other), c.overlap) << c.other.x;
        EXPECT_EQ(rect_union_area(a, c.other), c.unionArea) << c.other.x;
    }
    EXPECT_EQ(rect_area({0, 0, -30, 20}), -600);
    // The integer quotient is 0 unless identical.
    EXPECT_EQ(rect_iou(a, a), 1.0f);
    EXPECT_EQ(rect_iou(a, {1, 0, 100, 100}), 0.0f);
    EXPECT_EQ(rect_iou({0, 0, 0, 0}, {0, 0, 0, 0}), 0.0f);
}

TEST(Rect, ExpandToPersonMeasuresFaceScalesAndClips) {
    struct Case {
        Rect_t face;
        float side, above, below;
        Rect_t person;
    } cases[] = {
        // 100 / 120 is 0 in integers: size the mean 110; three sizes wide, 2.85 tall, 0.6 above.
        {{500, 300, 100, 120}, 1.0f, 0.6f, 1.25f, {390, 234, 330, 313}},
        {{500, 300, 120, 100}, 1.0f, 0.6f, 1.25f, {380, 228, 360, 342}},  // wide: by the width
        {{500, 300, 199, 100}, 1.0f, 0.6f, 1.25f, {301, 180, 597, 567}},  // still divides to 1
        {{500, 300, 100, 0}, 1.0f, 0.6f, 1.25f, {450, 270, 150, 142}},    // height 0: the mean
        {{20, 300, 100, 100}, 1.0f, 0.6f, 1.25f, {0, 240, 220, 285}},     // clipped at each edge,
        {{1850, 300, 60, 60}, 1.0f, 0.6f, 1.25f, {1790, 264, 129, 171}},  // one pixel inside right
        {{900, 20, 100, 100}, 1.0f, 0.6f, 1.25f, {800, 0, 300, 245}},
        {{900, 1000, 100, 100}, 1.0f, 0.6f, 1.25f, {800, 940, 300, 139}},   // and bottom
        {{1720, 300, 100, 100}, 1.0f, 0.6f, 1.25f, {1620, 240, 299, 285}},  // reaching 1920 exactly
        {{500, 300, 100, 100}, 0.5f, 1.0f, 2.0f, {450, 200, 200, 400}},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(rect_expand_to_person(c.face, c.side, c.above, c.below), c.person) << c.face.x;
    }
}

TEST(TargetSelection, FirstAcquisitionOfTwoEquallyNearFacesTakesTheLowerIndexAndTracesEveryStep) {
    TargetSelectionState s;  // target lost, as at thread start
    const std::vector<double> scores(kMaxFaces, 0.9);
    // Both centres are 150 pixels from (960, 540): right one first.
    const std::string out = select(s, {{1060, 490, 100, 100}, {760, 490, 100, 100}}, scores);
    EXPECT_EQ(out.rfind("/n/n/n ***************** faceNum = 2 ************ ", 0), 0u);
    EXPECT_EQ(s.person[0], (Rect_t{960, 430, 300, 285}));
    EXPECT_EQ(s.person[1], (Rect_t{660, 430, 300, 285}));
    EXPECT_EQ(s.personCenterRect, (Rect_t{960, 430, 300, 285}));
    EXPECT_EQ(s.targetReferenceScore, 0.9f);
    EXPECT_EQ(s.targetReferenceArea, 10000.0f);
    // The persons touch at x = 960 without overlapping: face 1 scores 0.3 + 0.5.
    const std::vector<std::string> want = {
        "********** faceNum=2 **************",
        "********** face_distance[0]=150 **************",
        "**************** person[0] [960, 430, 300, 285] *****************",
        "********** face_distance[1]=150 **************",
        "**************** person[1] [660, 430, 300, 285] *****************",
        "**************** face_distance_min_id = 0 *****************",
        "**************** person[face_distance_min_id].rect [960, 430, 300, 285] *****************",
        "**************** personCenterRect [960, 430, 300, 285] *****************",
        "**************** person_iou[0] = 1.000000 *****************",
        "**************** face_area_abs[0] = 0.000000 *****************",
        "**************** face_score_abs[0] = 0.000000 *****************",
        "**************** iou_area_score[0] = 1.600000 *****************",
        "**************** person_iou[1] = 0.000000 *****************",
        "**************** face_area_abs[1] = 0.000000 *****************",
        "**************** face_score_abs[1] = 0.000000 *****************",
        "**************** iou_area_score[1] = 0.800000 *****************",
        "**************** person_iou_max_id = 0 *****************",
        "**************** face_area_abs_min_id = 0 *****************",
        "**************** face_score_abs_min_id = 0 *****************",
        "**************** iou_area_score_max_id = 0 *****************",
        "**************** person[iou_area_score_max_id].rect [960, 430, 300, 285] *****************",
        "**************** personCenterRectFaceScore = 0.900000 *****************",
        "**************** personCenterRectFaceArea = 10000.000000 *****************",
        "**************** personCenterRect [960, 430, 300, 285] *****************",
    };
    EXPECT_EQ(info_messages(out), want);

    // The same faces the other way round: again index 0, now the left one.
    TargetSelectionState swapped;
    select(swapped, {{760, 490, 100, 100}, {1060, 490, 100, 100}}, scores);
    EXPECT_EQ(swapped.personCenterRect, (Rect_t{660, 430, 300, 285}));
}

TEST(TargetSelection, ReidentificationWeighsOverlapAboveScoreAboveArea) {
    // Face 0: elsewhere, same size and score (0.3 + 0.5 = 0.8). Face 1: on the
    // target, same size, score 0.2 against 0.8 (0.3 + 0.8 + 0.125). Face 2:
    // elsewhere, twice the area, same score (about 0.5).
    // The target: the person grown from the 100x100 face at (900, 400), scored 0.8.
    TargetSelectionState s;
    s.targetLost = false;
    s.personCenterRect = {800, 340, 300, 285};
    s.targetReferenceScore = 0.8f;
    s.targetReferenceArea = 10000.0f;
    std::vector<double> scores(kMaxFaces, 0.8);
    scores[1] = 0.2;
    const std::vector<std::string> m =
        info_messages(select(s, {{100, 400, 100, 100}, {900, 400, 100, 100}, {1600, 400, 141, 141}}, scores));
    for (const char *line : {"iou_area_score[0] = 0.800000", "iou_area_score[1] = 1.225000",
                             "person_iou_max_id = 1", "iou_area_score_max_id = 1"}) {
        EXPECT_THAT(m, testing::Contains(std::string("**************** ") + line + " *****************"));
    }
    EXPECT_THAT(
        m, testing::Not(testing::Contains("**************** face_distance_min_id = 0 *****************")))
        << "not acquired afresh";
    EXPECT_EQ(s.personCenterRect, (Rect_t{800, 340, 300, 285}));
    EXPECT_EQ(s.targetReferenceScore, 0.2f);
    // A zero-area reference makes every overlap 0 / 0: NaN never wins, face 0 is taken.
    TargetSelectionState n;
    n.targetLost = false;
    select(n, {{1500, 400, 100, 100}, {900, 400, 100, 100}}, std::vector<double>(kMaxFaces, 0.8));
    EXPECT_EQ(n.personCenterRect, (Rect_t{1400, 340, 300, 285}));
}

TEST(MoveDecision, FirstFramingMovesAtOnceAndFillsTheObjectRecord) {
    MoveDecisionState s;
    s.countNum_t_b = 2;
    s.countNum_p_l2 = 1;
    s.noObjNumCount = 4;
    s.tempObjectData[5] = 99;
    TargetSelectionState sel;
    // 300 x 285 person: framing 506 x 285 around (950, 482).
    const Outcome o = frame_with(s, sel, {800, 340, 300, 285});
    EXPECT_EQ(o.decision, static_cast<int>(MoveRequest::MoveToObject));
    EXPECT_EQ(s.objRect, (Rect_t{800, 340, 300, 285}));
    EXPECT_EQ(s.outRect, (Rect_t{950, 482, 506, 285}));
    // Only fields 1, 2, 3 are filled on a move; the counters start again.
    EXPECT_EQ((std::vector<int32_t>{s.tempObjectData[kObjectPanPoint], s.tempObjectData[kObjectTiltPoint],
                                    s.tempObjectData[kObjectZoomPoint], s.tempObjectData[5], s.prev_x,
                                    s.prev_y, s.prev_width, s.countNum_t_b, s.countNum_p_l2, s.changeFlag,
                                    s.change_z, s.noObjNumCount}),
              (std::vector<int32_t>{-10, 58, 506, 99, 950, 482, 506, 0, 0, 1, 1, 0}));
    EXPECT_FALSE(sel.targetLost);
    EXPECT_EQ(o.messages, (std::vector<std::string>{
                              "******** change_z = 1, abs > 0.4 ***********",
                              "******************** panPoint = -10 *******************",
                              "******************** tiltPoint = 58 ******************",
                              "******************** zoomPoint = 506 ******************",
                          }));

    // The same person again: nothing to do, the camera stays.
    const Outcome again = frame_with(s, sel, {800, 340, 300, 285});
    EXPECT_EQ(again.decision, static_cast<int>(MoveRequest::None));
    EXPECT_TRUE(again.messages.empty());
    EXPECT_EQ(s.changeFlag, 0);
}

TEST(MoveDecision, WidthsAreComparedClampedButTheZoomPointIsNot) {
    MoveDecisionState wide = sent_to(1920, 960, 540), narrow = sent_to(480, 960, 540);
    EXPECT_EQ(
        decide(wide, framing(960, 540, 2400)).decision + decide(narrow, framing(960, 540, 300)).decision, 0);
    EXPECT_EQ((std::vector<int32_t>{wide.fea_width, wide.fea_height, narrow.fea_width}),
              (std::vector<int32_t>{1920, 1350, 480}));
    // A 90 x 90 person frames 160 wide: compared as 480, sent as 160.
    MoveDecisionState s;
    TargetSelectionState sel;
    EXPECT_EQ(frame_with(s, sel, {900, 450, 90, 90}).decision, static_cast<int>(MoveRequest::MoveToObject));
    EXPECT_EQ((std::vector<int32_t>{s.fea_width, s.tempObjectData[kObjectZoomPoint], s.prev_width}),
              (std::vector<int32_t>{480, 160, 160}));
}

TEST(MoveDecision, BandBoundariesBelongToTheLargerBand) {
    // Zoom against P = 1000: 400 large, 399 and 200 medium, 199 nothing. Pan
    // against P = 960: 320 = P/3 large, 160 = P/6 band 2, 80 = P/12 band 1.
    // Tilt (Q = 60): 0.6 * 180 = 108 large, 0.6 * 90 = 54 medium.
    using S = MoveDecisionState;
    const struct {
        int32_t p, dx, dy, width, decision;
        int32_t S::*counter;
        int32_t count;
    } cases[] = {
        {1000, 0, 0, 1400, 1, &S::countNum_z_in, 0}, {1000, 0, 0, 1399, 0, &S::countNum_z_in, 1},
        {1000, 0, 0, 1200, 0, &S::countNum_z_in, 1}, {1000, 0, 0, 1199, 0, &S::countNum_z_in, 0},
        {1000, 0, 0, 800, 0, &S::countNum_z_out, 1}, {1000, 0, 0, 801, 0, &S::countNum_z_out, 0},
        {960, 320, 0, 960, 1, &S::countNum_p_r2, 0}, {960, 319, 0, 960, 0, &S::countNum_p_r2, 1},
        {960, 160, 0, 960, 0, &S::countNum_p_r2, 1}, {960, 159, 0, 960, 0, &S::countNum_p_r2, 0},
        {960, 159, 0, 960, 0, &S::countNum_p_r1, 1}, {960, 80, 0, 960, 0, &S::countNum_p_r1, 1},
        {960, 79, 0, 960, 0, &S::countNum_p_r1, 0},  {960, 0, 108, 960, 1, &S::countNum_t_b, 0},
        {960, 0, 107, 960, 0, &S::countNum_t_b, 1},  {960, 0, 54, 960, 0, &S::countNum_t_b, 1},
        {960, 0, 53, 960, 0, &S::countNum_t_b, 0},
    };
    for (const auto &c : cases) {
        S s = sent_to(c.p, 960, 540);
        EXPECT_EQ(decide(s, framing(960 + c.dx, 540 + c.dy, c.width)).decision, c.decision)
            << c.dx << " " << c.dy << " " << c.width;
        EXPECT_EQ(s.*c.counter, c.count) << c.dx << " " << c.dy << " " << c.width;
    }
}

// A difference held frame after frame: how many frames until the move, and
// its trace (between "******** change_" and "***********"), at rest and after a move. P = 960: zoom medium
// 192..383, pan band 2 160..319, band 1 80..159, tilt medium 54..107.
TEST(MoveDecision, PersistenceAtRestAndAfterAMove) {
    const struct {
        const char *what;
        int dx, dy, dw;
        int atRestFrames, afterMoveFrames;
        const char *atRestText, *afterMoveText;
    } cases[] = {
        {"large zoom", 0, 0, 400, 1, 1, "z = 1, abs > 0.4 ", "z = 1, 0.4 < abs, "},
        {"zoom in", 0, 0, 250, 4, 3, "z = 1, 0.2 < abs < 0.4, countNum_z_in > 3 ",
         "z = 1, 0.2 < abs < 0.4, countNum_z_in > 2"},
        {"zoom out", 0, 0, -260, 4, 3, "z = 1, 0.2 < abs < 0.4, countNum_z_out > 3 ",
         "z = 1, 0.2 < abs < 0.4, countNum_z_out > 2"},
        {"large pan", -330, 0, 0, 1, 1, "p = 1, 2/6 < abs ", "p = 1, 2/6 < abs, "},
        {"pan band 2 right", 200, 0, 0, 4, 3, "p = 1, 1/6 < abs < 2/6, countNum_p_r2 > 3 ",
         "p = 1, 1/6 < abs < 2/6, countNum_p_r2 > 2 "},
        {"pan band 2 left", -200, 0, 0, 4, 3, "p = 1, 1/6 < abs < 2/6, countNum_p_l2 > 3 ",
         "p = 1, 1/6 < abs < 2/6, countNum_p_l2 > 2 "},
        {"pan band 1 right", 100, 0, 0, 5, 4, "p = 1, 1/12 < abs < 1/6, countNum_p_r1 > 6 ",
         "p = 1, 1/12 < abs < 1/6, countNum_p_r1 > 4 "},
        {"pan band 1 left", -100, 0, 0, 5, 4, "p = 1, 1/12 < abs < 1/6, countNum_p_l1 > 6 ",
         "p = 1, 1/12 < abs < 1/6, countNum_p_l1 > 4 "},
        {"large tilt", 0, -108, 0, 1, 1, "t = 1, 2/6 < abs, ", "t = 1, 2/6 < abs, "},
        {"tilt top", 0, -60, 0, 4, 3, "t = 1, 1/6 < abs < 2/6, countNum_t_t > 3 ",
         "t = 1, 1/6 < abs < 2/6, countNum_t_t > 2 "},
        {"tilt bottom", 0, 60, 0, 4, 3, "t = 1, 1/6 < abs < 2/6, countNum_t_b > 3 ",
         "t = 1, 1/6 < abs < 2/6, countNum_t_b > 2 "},
    };
    for (const auto &c : cases) {
        for (bool afterMove : {false, true}) {
            MoveDecisionState s = sent_to(960, 960, 540);
            const Rect_t f = framing(960 + c.dx, 540 + c.dy, 960 + c.dw);
            int frames = 0;
            Outcome o{0, {}};
            while (o.decision == 0 && frames < 10) {
                // A decision to stay clears changeFlag, which would end the
                // after-move set after one frame; it is held here to reach its limit.
                s.changeFlag = afterMove ? 1 : s.changeFlag;
                o = decide(s, f);
                ++frames;
                EXPECT_TRUE(o.decision == 1 || o.messages.empty()) << c.what;
            }
            EXPECT_EQ(frames, afterMove ? c.afterMoveFrames : c.atRestFrames)
                << c.what << (afterMove ? " after a move" : "");
            const std::string text = afterMove ? c.afterMoveText : c.atRestText;
            EXPECT_EQ(o.messages, std::vector<std::string>{"******** change_" + text + "***********"});
            EXPECT_EQ(s.changeFlag, 1);
            EXPECT_EQ(afterMove ? s.moveCountNumFlag : s.stopCountNumFlag, 0) << c.what;
        }
    }
}

TEST(MoveDecision, TenFacelessFramesDoNothingAndTheEleventhSendsTheFullView) {
    MoveDecisionState s = sent_to(506, 950, 482);
    s.tempObjectData[kObjectPanPoint] = -10;
    s.tempObjectData[kObjectTiltPoint] = 58;
    s.tempObjectData[kObjectZoomPoint] = 506;
    s.tempObjectData[kObjectField5] = 3;
    TargetSelectionState sel;
    sel.targetLost = false;
    sel.faceNum = 0;
    for (int frame = 1; frame <= 10; ++frame) {
        EXPECT_EQ(move_decision_step(s, sel), MoveRequest::None) << frame;
        EXPECT_EQ(s.noObjNumCount, frame);
    }
    EXPECT_EQ(s.prev_width, 506);
    EXPECT_EQ(s.tempObjectData[kObjectZoomPoint], 506);
    EXPECT_FALSE(sel.targetLost);

    EXPECT_EQ(move_decision_step(s, sel), MoveRequest::MoveToObject);
    EXPECT_EQ((std::vector<int32_t>{s.tempObjectData[kObjectPanPoint], s.tempObjectData[kObjectTiltPoint],
                                    s.tempObjectData[kObjectZoomPoint], s.tempObjectData[kObjectField5],
                                    s.prev_x, s.prev_y, s.prev_width, s.noObjNumCount}),
              (std::vector<int32_t>{0, 0, 1920, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(sel.targetLost);

    // The next face moves at once, as at start.
    EXPECT_EQ(frame_with(s, sel, {800, 340, 300, 285}).decision, static_cast<int>(MoveRequest::MoveToObject));
}
