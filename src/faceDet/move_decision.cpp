// The pan/tilt/zoom move decision and the framing around it.
#include "faceDet/move_decision.h"

#include <cstdlib>

#include "dbgout/dbgout.h"

// Levelled lines go through FD_LOG, tagged "src/faceDet" (dbgout.h).

MoveDecisionState g_framing;
Rect_t &objRect = g_framing.objRect;
Rect_t &outRect = g_framing.outRect;
uint8_t &overFullView = g_framing.overFullView;
int32_t &prev_x = g_framing.prev_x;
int32_t &prev_y = g_framing.prev_y;
int32_t &prev_width = g_framing.prev_width;
int32_t &fea_x = g_framing.fea_x;
int32_t &fea_y = g_framing.fea_y;
int32_t &fea_width = g_framing.fea_width;
int32_t &fea_height = g_framing.fea_height;
int32_t &countNum_z_in = g_framing.countNum_z_in;
int32_t &countNum_z_out = g_framing.countNum_z_out;
int32_t &countNum_p_l1 = g_framing.countNum_p_l1;
int32_t &countNum_p_r1 = g_framing.countNum_p_r1;
int32_t &countNum_p_l2 = g_framing.countNum_p_l2;
int32_t &countNum_p_r2 = g_framing.countNum_p_r2;
int32_t &countNum_t_t = g_framing.countNum_t_t;
int32_t &countNum_t_b = g_framing.countNum_t_b;
uint8_t &change_z = g_framing.change_z;
uint8_t &change_p = g_framing.change_p;
uint8_t &change_t = g_framing.change_t;
uint8_t &changeFlag = g_framing.changeFlag;
uint8_t &stopCountNumFlag = g_framing.stopCountNumFlag;
uint8_t &moveCountNumFlag = g_framing.moveCountNumFlag;
int32_t &noObjNumCount = g_framing.noObjNumCount;
ObjectData_t &tempObjectData = g_framing.tempObjectData;

namespace {

constexpr int32_t kCentreX = kOutputWidth / 2;
constexpr int32_t kCentreY = kOutputHeight / 2;

// Framing widths are compared within these bounds (the zoom range).
constexpr int32_t kMinFramingWidth = 480;
constexpr int32_t kMaxFramingWidth = kOutputWidth;

// The two sets of persistence limits and their trace texts. A medium
// difference moves the camera once its counter exceeds the limit. The band-1
// texts name 6 and 4 while the limits are 4 and 3; the camera's log readers
// know the texts as they are.
struct ThresholdSet {
    int32_t zoomLimit, panBand2Limit, panBand1Limit, tiltLimit;
    const char *largeZoom, *zoomOut, *zoomIn;
    const char *largePan, *panRight2, *panLeft2, *panRight1, *panLeft1;
    const char *largeTilt, *tiltTop, *tiltBottom;
};

const ThresholdSet kAtRest = {
    3,
    3,
    4,
    3,
    "******** change_z = 1, abs > 0.4 ***********",
    "******** change_z = 1, 0.2 < abs < 0.4, countNum_z_out > 3 ***********",
    "******** change_z = 1, 0.2 < abs < 0.4, countNum_z_in > 3 ***********",
    "******** change_p = 1, 2/6 < abs ***********",
    "******** change_p = 1, 1/6 < abs < 2/6, countNum_p_r2 > 3 ***********",
    "******** change_p = 1, 1/6 < abs < 2/6, countNum_p_l2 > 3 ***********",
    "******** change_p = 1, 1/12 < abs < 1/6, countNum_p_r1 > 6 ***********",
    "******** change_p = 1, 1/12 < abs < 1/6, countNum_p_l1 > 6 ***********",
    "******** change_t = 1, 2/6 < abs, ***********",
    "******** change_t = 1, 1/6 < abs < 2/6, countNum_t_t > 3 ***********",
    "******** change_t = 1, 1/6 < abs < 2/6, countNum_t_b > 3 ***********",
};

const ThresholdSet kAfterMove = {
    2,
    2,
    3,
    2,
    "******** change_z = 1, 0.4 < abs, ***********",
    "******** change_z = 1, 0.2 < abs < 0.4, countNum_z_out > 2***********",
    "******** change_z = 1, 0.2 < abs < 0.4, countNum_z_in > 2***********",
    "******** change_p = 1, 2/6 < abs, ***********",
    "******** change_p = 1, 1/6 < abs < 2/6, countNum_p_r2 > 2 ***********",
    "******** change_p = 1, 1/6 < abs < 2/6, countNum_p_l2 > 2 ***********",
    "******** change_p = 1, 1/12 < abs < 1/6, countNum_p_r1 > 4 ***********",
    "******** change_p = 1, 1/12 < abs < 1/6, countNum_p_l1 > 4 ***********",
    "******** change_t = 1, 2/6 < abs, ***********",
    "******** change_t = 1, 1/6 < abs < 2/6, countNum_t_t > 2 ***********",
    "******** change_t = 1, 1/6 < abs < 2/6, countNum_t_b > 2 ***********",
};

void trace(const char *text) {
    FD_LOG(LOG_INFO, "%s", text);
}

// A decision to move on one axis: the axis flag, changeFlag, the counting
// flag cleared, the trace.
int decide_move(MoveDecisionState &s, uint8_t &axis, uint8_t &countingFlag, const char *text) {
    axis = 1;
    s.changeFlag = 1;
    countingFlag = 0;
    trace(text);
    return 1;
}

void clear_pan_counters(MoveDecisionState &s) {
    s.countNum_p_l1 = s.countNum_p_r1 = s.countNum_p_l2 = s.countNum_p_r2 = 0;
}

// Counts one frame for `counter` and clears the other pan counters.
int32_t count_pan(MoveDecisionState &s, int32_t &counter) {
    const int32_t n = counter + 1;
    clear_pan_counters(s);
    counter = n;
    return n;
}

}  // namespace

int change_decision(MoveDecisionState &s, int mode, const Rect_t &framing) {
    if (mode != 1) {
        return 0;
    }
    const int32_t x = framing.x;
    const int32_t y = framing.y;
    s.fea_width = framing.width;
    s.fea_height = framing.height;
    s.fea_x = x;
    s.fea_y = y;
    const int32_t w = framing.width > kMaxFramingWidth   ? kMaxFramingWidth
                      : framing.width < kMinFramingWidth ? kMinFramingWidth
                                                         : framing.width;
    s.fea_width = w;
    const int32_t P = s.prev_width;

    // At rest until a move, and again while counting under the at-rest limits.
    const bool atRest = s.changeFlag == 0 || s.stopCountNumFlag == 1;
    const ThresholdSet &set = atRest ? kAtRest : kAfterMove;
    uint8_t &countingFlag = atRest ? s.stopCountNumFlag : s.moveCountNumFlag;

    // Zoom.
    const int32_t dz = std::abs(w - P);
    if (dz >= 0.4 * P) {
        return decide_move(s, s.change_z, countingFlag, set.largeZoom);
    }
    if (dz >= 0.2 * P) {
        const bool out = P > w;
        int32_t &counter = out ? s.countNum_z_out : s.countNum_z_in;
        (out ? s.countNum_z_in : s.countNum_z_out) = 0;
        ++counter;
        if (counter > set.zoomLimit) {
            return decide_move(s, s.change_z, countingFlag, out ? set.zoomOut : set.zoomIn);
        }
        s.change_z = 0;
        countingFlag = 1;
    } else {
        s.change_z = 0;
        countingFlag = 0;
        s.countNum_z_in = s.countNum_z_out = 0;
    }

    // Pan, in bands of the previous framing width.
    const int32_t dx = std::abs(x - s.prev_x);
    if (dx >= P / 3) {
        return decide_move(s, s.change_p, countingFlag, set.largePan);
    }
    if (dx >= P / 6) {
        // After a move the centre is compared with the previous framing
        // width, not with the previous centre; the camera has always judged
        // the direction of this band so, and its pans are tuned to it.
        const bool left = atRest ? x < s.prev_x : x < P;
        const int32_t n = count_pan(s, left ? s.countNum_p_l2 : s.countNum_p_r2);
        if (n > set.panBand2Limit) {
            return decide_move(s, s.change_p, countingFlag, left ? set.panLeft2 : set.panRight2);
        }
        s.change_p = 0;
        countingFlag = 1;
    } else if (dx >= P / 12) {
        const bool left = x < s.prev_x;
        const int32_t n = count_pan(s, left ? s.countNum_p_l1 : s.countNum_p_r1);
        if (n > set.panBand1Limit) {
            return decide_move(s, s.change_p, countingFlag, left ? set.panLeft1 : set.panRight1);
        }
        s.change_p = 0;
        countingFlag = 1;
    } else if (s.overFullView == 1 && dx > P / 24) {
        // A framing held against the side of the picture follows even small
        // pans at once, so the person does not sit at the picture's edge.
        s.change_p = 1;
        s.changeFlag = 1;
        return 1;
    } else {
        s.change_p = 0;
        clear_pan_counters(s);
    }

    // Tilt, against the height 9 * (P / 16) implied by the previous width.
    const int32_t q = P / 16;
    const int32_t dy = std::abs(y - s.prev_y);
    if (dy >= 0.6 * (3 * q)) {
        return decide_move(s, s.change_t, countingFlag, set.largeTilt);
    }
    if (dy >= 0.6 * (9 * q / 6)) {
        const bool top = y < s.prev_y;
        int32_t &counter = top ? s.countNum_t_t : s.countNum_t_b;
        (top ? s.countNum_t_b : s.countNum_t_t) = 0;
        ++counter;
        if (counter > set.tiltLimit) {
            return decide_move(s, s.change_t, countingFlag, top ? set.tiltTop : set.tiltBottom);
        }
        s.changeFlag = 0;
        s.change_t = 0;
        countingFlag = 1;
        return 0;
    }
    s.changeFlag = 0;
    s.change_t = 0;
    s.countNum_t_t = s.countNum_t_b = 0;
    if (!atRest) {
        s.moveCountNumFlag = 0;
    }
    return 0;
}

void set_full_view_target(MoveDecisionState &s) {
    s.tempObjectData[kObjectField5] = 0;
    s.tempObjectData[kObjectPanPoint] = 0;
    s.tempObjectData[kObjectTiltPoint] = 0;
    s.tempObjectData[kObjectZoomPoint] = kOutputWidth;
    s.prev_width = s.prev_x = s.prev_y = 0;
}

MoveRequest framing_step(MoveDecisionState &s, TargetSelectionState &selection) {
    s.objRect = selection.personCenterRect;
    const int32_t x = s.objRect.x, y = s.objRect.y, w = s.objRect.width, h = s.objRect.height;

    // 16:9 around the person, never narrower or lower than the person.
    const int32_t W = h * 16 / 9 > w ? h * 16 / 9 : w;
    const int32_t H = w * 9 / 16 > h ? w * 9 / 16 : h;
    int32_t cx = x + w / 2;
    int32_t cy = y + h / 2;
    s.outRect = Rect_t{cx, cy, W, H};

    // Keep the framing inside the picture. Only the horizontal pushes mark
    // overFullView: the decision uses it for pans alone.
    if (cx < W / 2) {
        s.outRect.x = W / 2;
        cx = W / 2;
        s.overFullView = 1;
    }
    if (kOutputWidth - cx < W / 2) {
        s.outRect.x = kOutputWidth - W / 2;
        s.overFullView = 1;
    }
    if (cy < H / 2) {
        s.outRect.y = H / 2;
        cy = H / 2;
    }
    if (kOutputHeight - cy < H / 2) {
        s.outRect.y = kOutputHeight - H / 2;
    }

    MoveRequest request = MoveRequest::None;
    if (change_decision(s, 1, s.outRect) == 1) {
        s.prev_width = s.outRect.width;
        s.prev_x = s.outRect.x;
        s.prev_y = s.outRect.y;
        s.countNum_z_in = s.countNum_z_out = 0;
        clear_pan_counters(s);
        s.countNum_t_b = s.countNum_t_t = 0;
        s.overFullView = 0;
        // The camera zooms to the framing as computed; only the decision
        // compares within the zoom range.
        s.tempObjectData[kObjectZoomPoint] = s.outRect.width;
        s.tempObjectData[kObjectPanPoint] = s.outRect.x - kCentreX;
        s.tempObjectData[kObjectTiltPoint] = kCentreY - s.outRect.y;
        FD_LOG(LOG_INFO, "******************** panPoint = %d *******************",
               s.tempObjectData[kObjectPanPoint]);
        FD_LOG(LOG_INFO, "******************** tiltPoint = %d ******************",
               s.tempObjectData[kObjectTiltPoint]);
        FD_LOG(LOG_INFO, "******************** zoomPoint = %d ******************",
               s.tempObjectData[kObjectZoomPoint]);
        request = MoveRequest::MoveToObject;
    }
    selection.targetLost = false;
    s.noObjNumCount = 0;
    return request;
}

MoveRequest no_face_step(MoveDecisionState &s, TargetSelectionState &selection) {
    s.noObjNumCount += 1;
    if (s.noObjNumCount <= kNoFaceFrames) {
        return MoveRequest::None;
    }
    set_full_view_target(s);
    s.noObjNumCount = 0;
    selection.targetLost = true;
    return MoveRequest::MoveToObject;
}

MoveRequest move_decision_step(MoveDecisionState &s, TargetSelectionState &selection) {
    return selection.faceNum >= 1 ? framing_step(s, selection) : no_face_step(s, selection);
}
