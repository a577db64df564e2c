// Target selection: first acquisition by nearness, re-identification by the
// weighted score, the console line and the trace lines.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "autoframe_test_util.h"
#include "faceDet/target_selection.h"
#include "output_capture.h"

namespace {

bool has(const std::vector<std::string> &messages, const std::string &text) {
    return std::find(messages.begin(), messages.end(), text) != messages.end();
}

// Runs one selection and returns what it printed.
std::string select(TargetSelectionState &s, const std::vector<Rect_t> &faces,
                   const std::vector<double> &scores) {
    OutputCapture capture;
    select_target(s, faces, scores.data());
    return capture.finish();
}

// A state that follows the person grown from the 100x100 face at (900, 400),
// scored 0.8: person rectangle [800, 340, 300, 285].
TargetSelectionState following_centre_face() {
    TargetSelectionState s;
    s.targetLost = false;
    s.personCenterRect = {800, 340, 300, 285};
    s.targetReferenceScore = 0.8f;
    s.targetReferenceArea = 10000.0f;
    return s;
}

}  // namespace

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
    TargetSelectionState s = following_centre_face();
    std::vector<double> scores(kMaxFaces, 0.8);
    scores[1] = 0.2;
    const std::vector<std::string> m =
        info_messages(select(s, {{100, 400, 100, 100}, {900, 400, 100, 100}, {1600, 400, 141, 141}}, scores));
    for (const char *line : {"iou_area_score[0] = 0.800000", "iou_area_score[1] = 1.225000",
                             "person_iou_max_id = 1", "iou_area_score_max_id = 1"}) {
        EXPECT_TRUE(has(m, std::string("**************** ") + line + " *****************")) << line;
    }
    EXPECT_FALSE(has(m, "**************** face_distance_min_id = 0 *****************"))
        << "not acquired afresh";
    EXPECT_EQ(s.personCenterRect, (Rect_t{800, 340, 300, 285}));
    EXPECT_EQ(s.targetReferenceScore, 0.2f);
    // A zero-area reference makes every overlap 0 / 0: NaN never wins, face 0 is taken.
    TargetSelectionState n;
    n.targetLost = false;
    select(n, {{1500, 400, 100, 100}, {900, 400, 100, 100}}, std::vector<double>(kMaxFaces, 0.8));
    EXPECT_EQ(n.personCenterRect, (Rect_t{1400, 340, 300, 285}));
}
