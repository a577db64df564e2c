#include "faceDet/box_filter.h"

#include "dbgout/dbgout.h"
#include "faceDet/frame_geometry.h"

namespace {

constexpr double kMinScore = 0.3;
constexpr int32_t kMinSide = 16;

}  // namespace

int32_t scale_to_output(int32_t value, int outputSize, int frameSize) {
    return static_cast<int32_t>(static_cast<double>(value) * outputSize / frameSize);
}

void filter_face_boxes(const std::vector<FaceResult> &faces, std::vector<Rect_t> &frameBoxes,
                       std::vector<Rect_t> &outputBoxes, double *scores) {
    frameBoxes.clear();
    outputBoxes.clear();
    const size_t count = faces.size() < kMaxDetections ? faces.size() : kMaxDetections;
    for (size_t i = 0; i < count; ++i) {
        const FaceResult &face = faces[i];
        if (!(static_cast<double>(face.score) > kMinScore)) {
            continue;
        }
        // Sizes come from the corners as the detector gave them, before clamping.
        int32_t w = face.x2 - face.x1;
        int32_t h = face.y2 - face.y1;
        int32_t x = face.x1;
        int32_t y = face.y1;
        if (x < 0) {
            x = 0;
        } else if (x > kFrameWidth - 1) {
            x = kFrameWidth;
        }
        if (y < 0) {
            y = 0;
        } else if (y > kFrameHeight - 1) {
            y = kFrameHeight;
        }
        if (w > kFrameWidth - 1) {
            w = kFrameWidth;
        }
        if (h > kFrameHeight - 1) {
            h = kFrameHeight;
        }
        if (w < kMinSide || h < kMinSide) {
            continue;
        }
        FD_LOG(LOG_INFO, "face box (x, y, w, h) = (%d, %d, %d, %d), score = %f", x, y, w, h,
               static_cast<double>(face.score));
        frameBoxes.push_back({x, y, w, h});
        outputBoxes.push_back(
            {scale_to_output(x, kOutputWidth, kFrameWidth), scale_to_output(y, kOutputHeight, kFrameHeight),
             scale_to_output(w, kOutputWidth, kFrameWidth), scale_to_output(h, kOutputHeight, kFrameHeight)});
        scores[i] = static_cast<double>(face.score);
    }
}
