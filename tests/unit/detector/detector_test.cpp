// The detector object and the frame loop's interface to it: the daemon's own
// detector and its constants, the choice of engine, and input-size changes
// with their printed lines. Faces in real pictures: the framing and replay runs.
#include <algorithm>
#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "process_helpers.h"
#include "detector/face_det_api.h"
#include "detector/inference_engine.h"
#include "detector/slim_face_detector.h"
#include "output_capture.h"

namespace {

const std::string kModel = std::string(FACEDET_SHARED_DIR) + "/models/slim-320-quant-ADMM-50.mnn";

bool built(const char *name) {
    EngineKind kind;
    const std::vector<EngineKind> kinds = built_engines();
    return engine_from_name(name, &kind) && std::find(kinds.begin(), kinds.end(), kind) != kinds.end();
}

// The daemon's detector is built by its own static initialiser, with its own
// constants: a change there changes what every camera finds.
TEST(FaceDetApi, TheDaemonsDetectorIsTheCamerasNetworkWithItsConstants) {
    EXPECT_STREQ(FaceDet_GetVersion(), "FDTUM_1.0.0");
    EXPECT_EQ(g_faceDetector.getScoreThreshold(), 0.65f);
    EXPECT_EQ(g_faceDetector.getIouThreshold(), 0.3f);
    EXPECT_EQ(g_faceDetector.getNumThread(), 4);
    // Built for 480x320; frames change that at run time.
    EXPECT_EQ(g_faceDetector.getInputWidth() * 1000 + g_faceDetector.getInputHeight(), 480320);
    // Strides 8/16/32/64: the maps; prior sizes: the first prior of each map
    // and the sizes of the first cell.
    EXPECT_EQ(g_faceDetector.getNumAnchors(), 8820);
    EXPECT_EQ(g_faceDetector.getFeatureMapSizes()[0], (std::vector<float>{60, 30, 15, 8}));
    const std::vector<Prior> &priors = g_faceDetector.getPriors();
    const std::pair<size_t, float> sizes[] = {{0, 10},    {1, 16},     {2, 24},    {7200, 32},
                                              {8400, 64}, {8700, 128}, {8819, 256}};
    for (const auto &[index, size] : sizes) {
        EXPECT_FLOAT_EQ(priors[index][2], size / 480) << "prior " << index;
    }
    if (getenv(kEngineVariable) == nullptr && built("mnn")) {
        EXPECT_STREQ(g_faceDetector.engineName(), "mnn");
        EXPECT_EQ(g_faceDetector.modelFile(), "./slim-320-quant-ADMM-50.mnn");
        EXPECT_TRUE(g_faceDetector.ready()) << "the model is linked into the tests' working directory";
    }
}

TEST(EngineChoice, TheVariableOrTheArgumentPicksTheEngineAndAnythingElseIsOneLine) {
    const std::vector<EngineKind> kinds = built_engines();
    EXPECT_TRUE(kinds.empty() || kinds.front() == EngineKind::kMnn || !built("mnn"));  // the camera's first
    const char *first = kinds.empty() ? nullptr : engine_name(kinds.front());
    const char *const cases[][4] = {
        // FACEDET_ENGINE (null: unset), argument, engine expected (null: none), complaint
        {nullptr, "", first, "no inference engine"},
        {"", "", first, "no inference engine"},
        {"mnn", "", built("mnn") ? "mnn" : nullptr, "FACEDET_ENGINE 'mnn' is not built in"},
        {"opencv", "", built("opencv") ? "opencv" : nullptr, "FACEDET_ENGINE 'opencv' is not built in"},
        {"mnn", "opencv", built("opencv") ? "opencv" : nullptr, "engine 'opencv' is not built in"},
        {"tflite", "", nullptr, "unknown FACEDET_ENGINE 'tflite' (this build has: "},
        {nullptr, "MNN", nullptr, "unknown engine 'MNN'"},
    };
    for (const auto &c : cases) {
        c[0] != nullptr ? setenv(kEngineVariable, c[0], 1) : unsetenv(kEngineVariable);
        OutputCapture err(2);
        OutputCapture out(1);
        SlimFaceDetector detector(kModel, 480, 320, 1, -1, 0.65f, 0.3f, c[1]);
        const std::string said = out.finish(), complaint = err.finish();
        const std::string what = std::string(c[0] ? c[0] : "(unset)") + " / " + c[1] + ": " + complaint;
        EXPECT_EQ(detector.ready(), c[2] != nullptr) << what;
        if (c[2] != nullptr) {
            EXPECT_STREQ(detector.engineName(), c[2]) << what;
            EXPECT_EQ(said.find(std::string("face detector: engine ") + c[2] + ", model "), 0u) << said;
            EXPECT_EQ(complaint, "") << what;
        } else {
            EXPECT_EQ(count_of(complaint, "\n"), 1u) << what;
            EXPECT_NE(complaint.find(c[3]), std::string::npos) << what;
        }
    }
    unsetenv(kEngineVariable);  // each case of ctest runs in its own process
}

#if FACEDET_TEST_HAS_ENGINE

TEST(Detector, ReinitialisesOnEverySizeChangeAndOnlyThen) {
    OutputCapture init(1);
    SlimFaceDetector detector(kModel, 480, 320, 2, -1, 0.65f, 0.3f);
    init.finish();
    ASSERT_TRUE(detector.ready());
    const std::vector<uint8_t> stream(416 * 234 * 3, 128), small(160 * 120 * 3, 128);  // grey: no face
    std::vector<FaceBox> faces;
    const auto lines_of = [&](const std::vector<uint8_t> &frame, int width, int height) {
        OutputCapture out(1);
        detector.detect(frame.data(), width, height, faces);
        return out.finish();
    };
    // The first stream frame on an object built for 480x320. "resolution
    // changed." has no line end of its own.
    std::string text = lines_of(stream, 416, 234);
    const std::string seconds = "\\d[\\d.e+-]* s\n";  // a time as %g prints it
    EXPECT_TRUE(std::regex_match(
        text, std::regex("resolution changed\\.recount time :" + seconds + "inference time:" + seconds)))
        << text;
    EXPECT_EQ(
        (std::vector<int>{detector.getNumAnchors(), detector.getImageWidth(), detector.getImageHeight()}),
        (std::vector<int>{5752, 416, 234}));
    text = lines_of(stream, 416, 234);  // same size: only the inference line
    EXPECT_TRUE(std::regex_match(text, std::regex("inference time:" + seconds))) << text;
    // Another size, then back: each change re-initialises; the network runs at the frame's own size.
    text = lines_of(small, 160, 120);
    EXPECT_EQ(detector.getImageWidth(), 160);
    EXPECT_LT(detector.getNumAnchors(), 5752);
    text += lines_of(stream, 416, 234);
    EXPECT_EQ(count_of(text, "resolution changed.") * 10 + count_of(text, "inference time:"), 22u) << text;
    EXPECT_EQ(detector.getNumAnchors(), 5752);
    EXPECT_TRUE(faces.empty());
}

#endif

}  // namespace
