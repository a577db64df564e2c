// The detector unit: its static construction builds the process's detector
// after the frame-loop unit's tables, so the detector is destroyed first.
#include "detector/face_det_api.h"

#include "dbgout/construction_order.h"

FACEDET_CONSTRUCT_FACE_DETECTOR SlimFaceDetector g_faceDetector("./slim-320-quant-ADMM-50.mnn", 480, 320, 4,
                                                                -1, 0.65f, 0.3f);

std::vector<FaceResult> FaceDet_Detect(const uint8_t *image, int32_t width, int32_t height) {
    std::vector<FaceBox> faces;
    g_faceDetector.detect(image, width, height, faces);
    std::vector<FaceResult> results;
    results.reserve(faces.size());
    for (const FaceBox &box : faces) {
        results.push_back(face_result_from_box(box));
    }
    return results;
}

const char *FaceDet_GetVersion() {
    return "FDTUM_1.0.0";
}
