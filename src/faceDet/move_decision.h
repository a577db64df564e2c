/*
 * The pan/tilt/zoom move decision of auto framing, once per analysed frame.
 *
 * The followed person's rectangle becomes a 16:9 framing of the scene. The
 * decision is deliberately lazy: small differences to the framing the camera
 * was last sent to are ignored, medium ones must persist over several frames
 * in a row, large ones move the camera at once. A stricter set of persistence
 * limits holds while the camera is at rest, a looser one right after a move.
 * A run of frames without faces gives the target up and sends the camera to
 * the full view.
 *
 * Nothing here talks to the camera. A step that decides to move fills
 * tempObjectData and returns MoveRequest::MoveToObject; the frame loop then
 * stores the record into g_objectData and starts the move to the object.
 */
#ifndef FACEDET_MOVE_DECISION_H
#define FACEDET_MOVE_DECISION_H

#include <cstdint>

#include "faceDet/rect.h"
#include "faceDet/target_selection.h"
#include "visca/object_data.h"

// Face-less frames in a row that change nothing: the next one gives the
// target up and sends the full view. The readers of the daemon's log count
// with the same number, since that move prints no line of its own.
constexpr int32_t kNoFaceFrames = 10;

// What the frame loop must do after a step.
enum class MoveRequest {
    None,
    // Store tempObjectData into g_objectData, then start the move to the object.
    MoveToObject,
};

// Everything the decision keeps from frame to frame; names as in the traces.
// Counters are signed 32-bit, flags bytes holding 0 or 1. Frame thread only.
struct MoveDecisionState {
    Rect_t objRect = {};                             // the target's person rectangle, top-left form
    Rect_t outRect = {};                             // the framing, centre form
    uint8_t overFullView = 0;                        // the framing was pushed back inside horizontally
    int32_t prev_x = 0, prev_y = 0, prev_width = 0;  // framing the camera was last sent to
    int32_t fea_x = 0, fea_y = 0, fea_width = 0, fea_height = 0;  // framing under test, width clamped
    int32_t countNum_z_in = 0, countNum_z_out = 0;
    int32_t countNum_p_l1 = 0, countNum_p_r1 = 0;  // pan band 1 (P/12 .. P/6)
    int32_t countNum_p_l2 = 0, countNum_p_r2 = 0;  // pan band 2 (P/6 .. P/3)
    int32_t countNum_t_t = 0, countNum_t_b = 0;
    uint8_t change_z = 0, change_p = 0, change_t = 0;  // the axis of the last decision
    uint8_t changeFlag = 0;                            // 1 after a move, 0 after a decision to stay
    uint8_t stopCountNumFlag = 0;  // counting a medium difference under the at-rest limits
    uint8_t moveCountNumFlag = 0;  // counting a medium difference under the after-move limits
    int32_t noObjNumCount = 0;     // face-less frames in a row
    ObjectData_t tempObjectData = {};
};

// The daemon's one decision state, and its fields under their own names (the
// frame loop resets prev_x, prev_y, prev_width and fills tempObjectData when
// auto framing is switched off).
extern MoveDecisionState g_framing;
extern Rect_t &objRect;
extern Rect_t &outRect;
extern uint8_t &overFullView;
extern int32_t &prev_x, &prev_y, &prev_width;
extern int32_t &fea_x, &fea_y, &fea_width, &fea_height;
extern int32_t &countNum_z_in, &countNum_z_out;
extern int32_t &countNum_p_l1, &countNum_p_r1, &countNum_p_l2, &countNum_p_r2;
extern int32_t &countNum_t_t, &countNum_t_b;
extern uint8_t &change_z, &change_p, &change_t;
extern uint8_t &changeFlag, &stopCountNumFlag, &moveCountNumFlag;
extern int32_t &noObjNumCount;
extern ObjectData_t &tempObjectData;

// Decides whether the camera moves to framing (centre form): 1 move, 0 stay.
// The frame path passes mode 1; any other mode returns 0 and touches nothing.
int change_decision(MoveDecisionState &state, int mode, const Rect_t &framing);

// The frame's step after target selection: framing when it found faces, the
// no-face count otherwise.
MoveRequest move_decision_step(MoveDecisionState &state, TargetSelectionState &selection);

// Frames selection.personCenterRect and decides; on a move fills fields 1, 2
// and 3 of tempObjectData. Ends with the target held (targetLost false).
MoveRequest framing_step(MoveDecisionState &state, TargetSelectionState &selection);

// Counts a frame without faces; the eleventh in a row asks for the full view
// and gives the target up.
MoveRequest no_face_step(MoveDecisionState &state, TargetSelectionState &selection);

// The full view, centred, in tempObjectData (fields 1, 2, 5 zero, zoom 1920),
// and no framing sent yet (prev_ zero). Also what the frame loop sends when
// auto framing is switched off.
void set_full_view_target(MoveDecisionState &state);

#endif
