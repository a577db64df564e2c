// The detector object and the frame loop's interface to it: construction,
// input-size changes with their printed lines, refusal of a missing or
// unusable model, and (with an engine) faces found in a real photo.
#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "detector/box_decoding.h"
#include "detector/face_det_api.h"
#include "detector/inference_engine.h"
#include "detector/slim_face_detector.h"
#include "output_capture.h"
#include "temp_dir.h"

#if FACEDET_TEST_HAS_IMAGES
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

const std::string kModel = std::string(FACEDET_SHARED_DIR) + "/models/slim-320-quant-ADMM-50.mnn";

size_t count_of(const std::string &text, const std::string &what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) {
        ++n;
    }
    return n;
}

// True when text holds, from pos on, label, a number, " s" and a line end.
// Returns the position after the line in *next.
bool timing_line_at(const std::string &text, size_t pos, const std::string &label, size_t *next = nullptr) {
    if (text.compare(pos, label.size(), label) != 0) {
        return false;
    }
    const char *number = text.c_str() + pos + label.size();
    char *end = nullptr;
    const double seconds = strtod(number, &end);
    if (end == number || seconds < 0 || std::string(end).compare(0, 3, " s\n") != 0) {
        return false;
    }
    if (next != nullptr) {
        *next = static_cast<size_t>(end - text.c_str()) + 3;
    }
    return true;
}

// A frame of one grey level: nothing for the network to find.
std::vector<uint8_t> grey_frame(int width, int height) {
    return std::vector<uint8_t>(static_cast<size_t>(width) * height * 3, 128);
}

TEST(EngineSeam, OtherModelFilesAreFoundBesideTheGivenOne) {
    EXPECT_EQ(sibling_model_path("./slim-320-quant-ADMM-50.mnn", "slim-320.onnx"), "./slim-320.onnx");
    EXPECT_EQ(sibling_model_path("/opt/models/a.mnn", "slim-320.onnx"), "/opt/models/slim-320.onnx");
    EXPECT_EQ(sibling_model_path("a.mnn", "slim-320.onnx"), "slim-320.onnx");
}

TEST(EngineSeam, TheCamerasEngineComesFirst) {
    const std::vector<EngineKind> kinds = built_engines();
#if FACEDET_TEST_HAS_ENGINE
    ASSERT_FALSE(kinds.empty());
#else
    EXPECT_TRUE(kinds.empty());
#endif
    // MNN, when built, is the one the detector uses.
    for (size_t i = 1; i < kinds.size(); ++i) {
        EXPECT_NE(kinds[i], EngineKind::kMnn);
    }
}

TEST(FaceDetApi, VersionIsFixed) {
    EXPECT_STREQ(FaceDet_GetVersion(), "FDTUM_1.0.0");
}

TEST(FaceDetApi, CornersAreTruncatedTowardZeroNotRounded) {
    const FaceResult r = face_result_from_box(FaceBox{10.9f, 0.999f, 415.6f, 233.5f, 0.875f});
    EXPECT_EQ(r.x1, 10);
    EXPECT_EQ(r.y1, 0);
    EXPECT_EQ(r.x2, 415);
    EXPECT_EQ(r.y2, 233);
    EXPECT_EQ(r.score, 0.875f);

    // The same through decoding: a right edge at 0.999 of the 416-px width.
    const std::vector<Prior> priors = {Prior{0.949f, 0.5f, 0.1f, 0.1f}};
    const float scores[2] = {0.1f, 0.9f};
    const float boxes[4] = {0, 0, 0, 0};
    std::vector<FaceBox> candidates;
    ASSERT_TRUE(
        decode_boxes(scores, 2, boxes, 4, priors, 1, DecodeParams{0.65f, 0.1f, 0.2f, 416, 234}, candidates));
    ASSERT_EQ(candidates.size(), 1u);
    EXPECT_GT(candidates[0].x2, 415.5f);
    EXPECT_EQ(face_result_from_box(candidates[0]).x2, 415);
}

TEST(FaceDetApi, GlobalDetectorStartsAt480x320) {
    // Nothing has run a frame through it in this process yet.
    EXPECT_EQ(g_faceDetector.getInputWidth(), 480);
    EXPECT_EQ(g_faceDetector.getInputHeight(), 320);
    EXPECT_EQ(g_faceDetector.getNumAnchors(), 8820);
    EXPECT_EQ(g_faceDetector.getImageWidth(), 0);
    EXPECT_EQ(g_faceDetector.getImageHeight(), 0);
}

TEST(Detector, MissingModelIsNamedAndDetectsNothing) {
    TempDir dir;
    const std::string model = dir.file("absent.mnn");
    OutputCapture err(2);
    OutputCapture out(1);
    SlimFaceDetector detector(model, 480, 320, 1, -1, 0.65f, 0.3f);
    const std::string construction = out.finish();
    const std::string complaint = err.finish();

    EXPECT_FALSE(detector.ready());
    size_t end = 0;
    EXPECT_TRUE(timing_line_at(construction, 0, "init time:", &end) && end == construction.size())
        << construction;
    EXPECT_EQ(count_of(complaint, "\n"), 1u) << complaint;
#if FACEDET_TEST_HAS_ENGINE
    // The engine names the file it looked for (the ONNX engine's sibling).
    EXPECT_NE(complaint.find(dir.path() + "/"), std::string::npos) << complaint;
    EXPECT_NE(complaint.find("No such file or directory"), std::string::npos) << complaint;
#else
    EXPECT_NE(complaint.find("no inference engine"), std::string::npos) << complaint;
#endif

    // Frames keep coming; the priors still follow their size, but nothing runs.
    const std::vector<uint8_t> frame = grey_frame(416, 234);
    std::vector<FaceBox> faces;
    OutputCapture perFrame(1);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(detector.detect(frame.data(), 416, 234, faces), 0);
    }
    const std::string lines = perFrame.finish();
    EXPECT_TRUE(faces.empty());
    EXPECT_EQ(count_of(lines, "resolution changed."), 1u);
    EXPECT_EQ(count_of(lines, "inference time:"), 0u);
    EXPECT_EQ(detector.getNumAnchors(), 5752);
}

#if FACEDET_TEST_HAS_ENGINE

TEST(Detector, UnreadableModelIsRefusedWithoutACrash) {
    // Files of the right names that hold no network.
    TempDir dir;
    write_file(dir.file("slim-320-quant-ADMM-50.mnn"), "not a model");
    write_file(dir.file("slim-320.onnx"), "not a model either");
    OutputCapture err(2);
    SlimFaceDetector detector(dir.file("slim-320-quant-ADMM-50.mnn"), 480, 320, 1, -1, 0.65f, 0.3f);
    const std::string complaint = err.finish();
    EXPECT_FALSE(detector.ready());
    EXPECT_EQ(count_of(complaint, "\n"), 1u) << complaint;
    EXPECT_NE(complaint.find(dir.path() + "/slim-320"), std::string::npos) << complaint;

    const std::vector<uint8_t> frame = grey_frame(416, 234);
    std::vector<FaceBox> faces;
    EXPECT_EQ(detector.detect(frame.data(), 416, 234, faces), 0);
    EXPECT_TRUE(faces.empty());
}

TEST(Detector, ReinitialisesOnEverySizeChangeAndOnlyThen) {
    OutputCapture init(1);
    SlimFaceDetector detector(kModel, 480, 320, 2, -1, 0.65f, 0.3f);
    init.finish();
    ASSERT_TRUE(detector.ready());
    EXPECT_EQ(detector.getNumAnchors(), 8820);

    const std::vector<uint8_t> stream = grey_frame(416, 234);
    const std::vector<uint8_t> small = grey_frame(160, 120);
    std::vector<FaceBox> faces;

    {
        // First stream frame on an object built for 480x320; no face in it.
        OutputCapture out(1);
        EXPECT_EQ(detector.detect(stream.data(), 416, 234, faces), 0);
        const std::string text = out.finish();
        EXPECT_TRUE(faces.empty());
        // "resolution changed." has no line end of its own.
        size_t next = 0;
        EXPECT_TRUE(timing_line_at(text, 0, "resolution changed.recount time :", &next)) << text;
        EXPECT_TRUE(timing_line_at(text, next, "inference time:", &next) && next == text.size()) << text;
        EXPECT_EQ(detector.getNumAnchors(), 5752);
        EXPECT_EQ(detector.getImageWidth(), 416);
        EXPECT_EQ(detector.getImageHeight(), 234);
    }
    {
        // Same size: no re-initialisation, only the inference line.
        OutputCapture out(1);
        detector.detect(stream.data(), 416, 234, faces);
        const std::string text = out.finish();
        size_t next = 0;
        EXPECT_TRUE(timing_line_at(text, 0, "inference time:", &next) && next == text.size()) << text;
        EXPECT_TRUE(faces.empty());
    }
    {
        // Another size, then back: each change re-initialises.
        OutputCapture out(1);
        detector.detect(small.data(), 160, 120, faces);
        const int32_t smallAnchors = detector.getNumAnchors();
        EXPECT_EQ(detector.getImageWidth(), 160);
        detector.detect(stream.data(), 416, 234, faces);
        const std::string text = out.finish();
        EXPECT_EQ(count_of(text, "resolution changed."), 2u) << text;
        EXPECT_EQ(count_of(text, "recount time :"), 2u) << text;
        EXPECT_EQ(count_of(text, "inference time:"), 2u) << text;
        EXPECT_LT(smallAnchors, 5752);
        EXPECT_EQ(detector.getNumAnchors(), 5752);
        EXPECT_EQ(detector.getFeatureMapSizes()[0], (std::vector<float>{52, 26, 13, 7}));
    }
}

#endif

#if FACEDET_TEST_HAS_IMAGES

// A single clear face, 158x236 at (666, 76) in a 1024x566 photo.
TEST(Detector, FindsTheAnnotatedFaceInARealPhoto) {
    const std::string path =
        std::string(FACEDET_SHARED_DIR) + "/data/faces/images/13_Interview_Interview_On_Location_13_282.jpg";
    const cv::Mat photo = cv::imread(path, cv::IMREAD_COLOR);
    ASSERT_FALSE(photo.empty()) << path;
    ASSERT_EQ(photo.cols, 1024);
    ASSERT_EQ(photo.rows, 566);
    // As the camera delivers it: the whole picture scaled to the stream size.
    cv::Mat frame;
    cv::resize(photo, frame, cv::Size(416, 234));
    ASSERT_TRUE(frame.isContinuous());

    OutputCapture out(1);
    const std::vector<FaceResult> faces = FaceDet_Detect(frame.ptr<uint8_t>(), 416, 234);
    out.finish();
    ASSERT_TRUE(g_faceDetector.ready()) << "the model is linked into the tests' working directory";
    ASSERT_EQ(faces.size(), 1u);

    const double sx = 416.0 / 1024, sy = 234.0 / 566;
    const double ax1 = 666 * sx, ay1 = 76 * sy, ax2 = (666 + 158) * sx, ay2 = (76 + 236) * sy;
    const FaceResult &f = faces[0];
    const double iw = std::min<double>(f.x2, ax2) - std::max<double>(f.x1, ax1);
    const double ih = std::min<double>(f.y2, ay2) - std::max<double>(f.y1, ay1);
    ASSERT_GT(iw, 0);
    ASSERT_GT(ih, 0);
    const double inter = iw * ih;
    const double iou = inter / ((f.x2 - f.x1) * double(f.y2 - f.y1) + (ax2 - ax1) * (ay2 - ay1) - inter);
    EXPECT_GE(iou, 0.7) << f.x1 << " " << f.y1 << " " << f.x2 << " " << f.y2;
    EXPECT_GT(f.score, 0.9f);
    EXPECT_LE(f.score, 1.0f);
}

#endif

}  // namespace
