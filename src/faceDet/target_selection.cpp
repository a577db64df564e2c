// Target selection: first acquisition by nearness, then re-identification.
#include "faceDet/target_selection.h"

#include <cmath>
#include <cstdio>

#include "dbgout/dbgout.h"

// Levelled lines go through FD_LOG, tagged "src/faceDet" (dbgout.h).

TargetSelectionState g_targetSelection;
int32_t &faceNum = g_targetSelection.faceNum;
Rect_t (&person)[kMaxFaces] = g_targetSelection.person;
Rect_t &personCenterRect = g_targetSelection.personCenterRect;
float &targetReferenceScore = g_targetSelection.targetReferenceScore;
float &targetReferenceArea = g_targetSelection.targetReferenceArea;
bool &targetLost = g_targetSelection.targetLost;

double face_score[kMaxFaces];

namespace {

// Frame centre of the output space.
constexpr int32_t kCentreX = kOutputWidth / 2;
constexpr int32_t kCentreY = kOutputHeight / 2;

// A face must be nearer than this to be taken at first acquisition; when none
// is, face 0 is.
constexpr int32_t kNearestStart = 1101;

// Weights of the re-identification score.
constexpr float kAreaWeight = 0.3f;
constexpr float kOverlapWeight = 0.8f;
constexpr float kScoreWeight = 0.5f;

Rect_t grow_person(const Rect_t &face) {
    return rect_expand_to_person(face, kPersonSideFactor, kPersonTopFactor, kPersonBottomFactor);
}

int32_t centre_distance(const Rect_t &face) {
    const int32_t cx = face.x + face.width / 2;
    const int32_t cy = face.y + face.height / 2;
    const double dx = cx - kCentreX;
    const double dy = cy - kCentreY;
    return static_cast<int32_t>(std::sqrt(dx * dx + dy * dy));
}

float face_area(const Rect_t &face) {
    return static_cast<float>(face.width * face.height);
}

// Takes face i as the target's reference.
void take_reference(TargetSelectionState &s, const Rect_t &face, double score) {
    s.targetReferenceScore = static_cast<float>(score);
    s.targetReferenceArea = face_area(face);
}

}  // namespace

void select_target(TargetSelectionState &s, const std::vector<Rect_t> &faces, const double *scores) {
    // The tables hold kMaxFaces faces. The frame loop holds the detector's
    // result to that many as well, which also keeps its face_score indices
    // (detector indices) below kMaxFaces; this bound is the last guard.
    const int32_t n =
        faces.size() > static_cast<size_t>(kMaxFaces) ? kMaxFaces : static_cast<int32_t>(faces.size());
    s.faceNum = n;
    // "/n" rather than line breaks: the camera's log readers expect the line so.
    printf("/n/n/n ***************** faceNum = %d ************ ", n);
    if (n < 1) {
        return;
    }
    FD_LOG(LOG_INFO, "********** faceNum=%d **************", n);

    if (n == 1) {
        s.personCenterRect = grow_person(faces[0]);
        take_reference(s, faces[0], scores[0]);
    } else {
        int32_t nearest = 0;
        int32_t nearestDistance = kNearestStart;
        for (int32_t i = 0; i < n; ++i) {
            const int32_t d = centre_distance(faces[i]);
            FD_LOG(LOG_INFO, "********** face_distance[%d]=%d **************", i, d);
            if (d < nearestDistance) {  // strict: the lower index keeps a tie
                nearestDistance = d;
                nearest = i;
            }
            s.person[i] = grow_person(faces[i]);
            const Rect_t &p = s.person[i];
            FD_LOG(LOG_INFO, "**************** person[%d] [%d, %d, %d, %d] *****************", i, p.x, p.y,
                   p.width, p.height);
        }

        if (s.targetLost) {
            s.personCenterRect = s.person[nearest];
            take_reference(s, faces[nearest], scores[nearest]);
            const Rect_t &p = s.person[nearest];
            FD_LOG(LOG_INFO, "**************** face_distance_min_id = %d *****************", nearest);
            FD_LOG(LOG_INFO,
                   "**************** person[face_distance_min_id].rect [%d, %d, %d, %d] *****************",
                   p.x, p.y, p.width, p.height);
        }
        const Rect_t &ref = s.personCenterRect;
        FD_LOG(LOG_INFO, "**************** personCenterRect [%d, %d, %d, %d] *****************", ref.x, ref.y,
               ref.width, ref.height);

        // A zero reference area, score or rectangle divides by zero here on
        // purpose: the infinities and NaNs never win the comparisons below.
        float bestOverlap = 0.0f;
        float bestCombined = 0.0f;
        float minAreaDiff = 1.0f;
        float minScoreDiff = 1.0f;
        int32_t overlapId = 0, areaId = 0, scoreId = 0, chosen = 0;
        const float refArea = static_cast<float>(rect_area(ref));
        for (int32_t i = 0; i < n; ++i) {
            const float overlap = static_cast<float>(rect_intersection_area(ref, s.person[i])) / refArea;
            FD_LOG(LOG_INFO, "**************** person_iou[%d] = %f *****************", i, overlap);
            if (overlap > bestOverlap) {
                bestOverlap = overlap;
                overlapId = i;
            }
            const float areaDiff =
                std::fabs(s.targetReferenceArea - face_area(faces[i])) / s.targetReferenceArea;
            FD_LOG(LOG_INFO, "**************** face_area_abs[%d] = %f *****************", i, areaDiff);
            if (areaDiff < minAreaDiff) {
                minAreaDiff = areaDiff;
                areaId = i;
            }
            const double refScore = s.targetReferenceScore;
            const float scoreDiff = static_cast<float>(std::fabs(refScore - scores[i]) / refScore);
            FD_LOG(LOG_INFO, "**************** face_score_abs[%d] = %f *****************", i, scoreDiff);
            if (scoreDiff < minScoreDiff) {
                minScoreDiff = scoreDiff;
                scoreId = i;
            }
            const float combined = (1.0f - areaDiff) * kAreaWeight + overlap * kOverlapWeight +
                                   (1.0f - scoreDiff) * kScoreWeight;
            FD_LOG(LOG_INFO, "**************** iou_area_score[%d] = %f *****************", i, combined);
            if (combined > bestCombined) {  // strict: ties and NaN leave the earlier choice
                bestCombined = combined;
                chosen = i;
            }
        }

        // Only the combined score decides; the other three are for the log.
        FD_LOG(LOG_INFO, "**************** person_iou_max_id = %d *****************", overlapId);
        FD_LOG(LOG_INFO, "**************** face_area_abs_min_id = %d *****************", areaId);
        FD_LOG(LOG_INFO, "**************** face_score_abs_min_id = %d *****************", scoreId);
        FD_LOG(LOG_INFO, "**************** iou_area_score_max_id = %d *****************", chosen);
        const Rect_t &p = s.person[chosen];
        FD_LOG(LOG_INFO,
               "**************** person[iou_area_score_max_id].rect [%d, %d, %d, %d] *****************", p.x,
               p.y, p.width, p.height);
        s.personCenterRect = s.person[chosen];
        take_reference(s, faces[chosen], scores[chosen]);
        FD_LOG(LOG_INFO, "**************** personCenterRectFaceScore = %f *****************",
               static_cast<double>(s.targetReferenceScore));
        FD_LOG(LOG_INFO, "**************** personCenterRectFaceArea = %f *****************",
               static_cast<double>(s.targetReferenceArea));
    }

    const Rect_t &r = s.personCenterRect;
    FD_LOG(LOG_INFO, "**************** personCenterRect [%d, %d, %d, %d] *****************", r.x, r.y,
           r.width, r.height);
}
