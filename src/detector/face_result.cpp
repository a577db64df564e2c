// The detector's float boxes as the frame loop's integer faces.
#include "detector/face_result.h"

FaceResult face_result_from_box(const FaceBox &box) {
    FaceResult r;
    r.x1 = static_cast<int32_t>(box.x1);
    r.y1 = static_cast<int32_t>(box.y1);
    r.x2 = static_cast<int32_t>(box.x2);
    r.y2 = static_cast<int32_t>(box.y2);
    r.score = box.score;
    return r;
}
