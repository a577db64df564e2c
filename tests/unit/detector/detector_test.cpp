// The detector object and the frame loop's interface to it: the daemon's own
// detector and its constants, the choice of engine, input-size changes with
// their printed lines, refusal of missing or broken models, and (with an
// engine) faces found in a real photo.
#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "detector/box_decoding.h"
#include "detector/face_det_api.h"
#include "detector/inference_engine.h"
#include "detector/nms.h"
#include "detector/slim_face_detector.h"
#include "output_capture.h"
#include "temp_dir.h"

#if FACEDET_TEST_HAS_IMAGES
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

const std::string kModels = std::string(FACEDET_SHARED_DIR) + "/models/";
const std::string kModel = kModels + "slim-320-quant-ADMM-50.mnn";

// True when text holds, from pos on, label, a number, " s" and a line end.
// Returns the position after the line in *next.
bool timing_line_at(const std::string &text, size_t pos, const std::string &label, size_t *next) {
    if (text.compare(pos, label.size(), label) != 0) {
        return false;
    }
    const char *number = text.c_str() + pos + label.size();
    char *end = nullptr;
    const double seconds = strtod(number, &end);
    if (end == number || seconds < 0 || std::string(end).compare(0, 3, " s\n") != 0) {
        return false;
    }
    *next = static_cast<size_t>(end - text.c_str()) + 3;
    return true;
}

size_t count_of(const std::string &text, const std::string &what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) {
        ++n;
    }
    return n;
}

// A frame of one grey level: nothing for the network to find.
std::vector<uint8_t> grey_frame(int width, int height) {
    return std::vector<uint8_t>(static_cast<size_t>(width) * height * 3, 128);
}

// Sets or clears FACEDET_ENGINE for one scope.
struct EngineVariable {
    explicit EngineVariable(const char *value) : had(getenv(kEngineVariable) != nullptr) {
        saved = had ? getenv(kEngineVariable) : "";
        value != nullptr ? setenv(kEngineVariable, value, 1) : unsetenv(kEngineVariable);
    }
    ~EngineVariable() { had ? setenv(kEngineVariable, saved.c_str(), 1) : unsetenv(kEngineVariable); }
    bool had;
    std::string saved;
};

bool built(const char *name) {
    EngineKind kind;
    const std::vector<EngineKind> kinds = built_engines();
    return engine_from_name(name, &kind) && std::find(kinds.begin(), kinds.end(), kind) != kinds.end();
}

TEST(FaceDetApi, VersionAndTruncationTowardZero) {
    EXPECT_STREQ(FaceDet_GetVersion(), "FDTUM_1.0.0");
    const FaceResult r = face_result_from_box(FaceBox{10.9f, 0.999f, 415.6f, 233.5f, 0.875f});
    EXPECT_EQ(r.x1, 10);
    EXPECT_EQ(r.y1, 0);
    EXPECT_EQ(r.x2, 415);
    EXPECT_EQ(r.y2, 233);
    EXPECT_EQ(r.score, 0.875f);
}

// The daemon's detector is built by its own static initialiser, with its own
// constants: a change there changes what every camera finds.
TEST(FaceDetApi, TheDaemonsDetectorIsTheCamerasNetworkWithItsConstants) {
    EXPECT_EQ(g_faceDetector.getScoreThreshold(), 0.65f);
    EXPECT_EQ(g_faceDetector.getIouThreshold(), 0.3f);
    EXPECT_EQ(g_faceDetector.getNumThread(), 4);
    // Nothing has run a frame through it in this process yet.
    EXPECT_EQ(g_faceDetector.getInputWidth(), 480);
    EXPECT_EQ(g_faceDetector.getInputHeight(), 320);
    EXPECT_EQ(g_faceDetector.getImageWidth(), 0);
    // Strides 8/16/32/64: the maps; prior sizes: the first prior of each map
    // and the sizes of the first cell.
    EXPECT_EQ(g_faceDetector.getNumAnchors(), 8820);
    EXPECT_EQ(g_faceDetector.getFeatureMapSizes()[0], (std::vector<float>{60, 30, 15, 8}));
    const std::vector<Prior> &priors = g_faceDetector.getPriors();
    const struct {
        size_t index;
        float size;
    } sizes[] = {{0, 10}, {1, 16}, {2, 24}, {7200, 32}, {8400, 64}, {8700, 128}, {8819, 256}};
    for (const auto &s : sizes) {
        EXPECT_FLOAT_EQ(priors[s.index][2], s.size / 480) << "prior " << s.index;
    }
    if (getenv(kEngineVariable) == nullptr && built("mnn")) {
        EXPECT_STREQ(g_faceDetector.engineName(), "mnn");
        EXPECT_EQ(g_faceDetector.modelFile(), "./slim-320-quant-ADMM-50.mnn");
        EXPECT_TRUE(g_faceDetector.ready()) << "the model is linked into the tests' working directory";
    }
}

TEST(EngineChoice, TheVariableOrTheArgumentPicksTheEngineAndAnythingElseIsOneLine) {
    const std::vector<EngineKind> kinds = built_engines();
    // The camera's engine comes first wherever it is built.
    for (size_t i = 1; i < kinds.size(); ++i) {
        EXPECT_NE(kinds[i], EngineKind::kMnn);
    }
    const struct {
        const char *variable;  // FACEDET_ENGINE, null: unset
        const char *argument;
        const char *engine;  // the engine expected, null: none
        const char *complaint;
    } cases[] = {
        {nullptr, "", kinds.empty() ? nullptr : engine_name(kinds.front()), "no inference engine"},
        {"", "", kinds.empty() ? nullptr : engine_name(kinds.front()), "no inference engine"},
        {"mnn", "", built("mnn") ? "mnn" : nullptr, "FACEDET_ENGINE 'mnn' is not built in"},
        {"opencv", "", built("opencv") ? "opencv" : nullptr, "FACEDET_ENGINE 'opencv' is not built in"},
        {"mnn", "opencv", built("opencv") ? "opencv" : nullptr, "engine 'opencv' is not built in"},
        {"tflite", "", nullptr, "unknown FACEDET_ENGINE 'tflite' (this build has: "},
        {nullptr, "MNN", nullptr, "unknown engine 'MNN'"},
    };
    for (const auto &c : cases) {
        EngineVariable variable(c.variable);
        OutputCapture err(2);
        OutputCapture out(1);
        SlimFaceDetector detector(kModel, 480, 320, 1, -1, 0.65f, 0.3f, c.argument);
        const std::string said = out.finish();
        const std::string complaint = err.finish();
        const std::string what = std::string(c.variable ? c.variable : "(unset)") + " / " + c.argument;
        if (c.engine != nullptr) {
            EXPECT_STREQ(detector.engineName(), c.engine) << what;
            EXPECT_TRUE(detector.ready()) << what << ": " << complaint;
            EXPECT_EQ(said.find(std::string("face detector: engine ") + c.engine + ", model "), 0u) << said;
            EXPECT_EQ(complaint, "") << what;
        } else {
            EXPECT_FALSE(detector.ready()) << what;
            EXPECT_EQ(count_of(complaint, "\n"), 1u) << what << ": " << complaint;
            EXPECT_NE(complaint.find(c.complaint), std::string::npos) << what << ": " << complaint;
        }
    }
}

// Files that cannot serve as the network: each is one line naming the file,
// the detector finds nothing, and frames keep coming without a crash.
TEST(Detector, MissingOrBrokenModelsAreOneLineAndDetectNothing) {
    const std::vector<EngineKind> kinds = built_engines();  // none: see EngineChoice
    EngineVariable variable(nullptr);
    for (EngineKind kind : kinds) {
        // The engine's own file, beside the .mnn path the detector is given.
        const std::string file = kind == EngineKind::kMnn ? "slim-320-quant-ADMM-50.mnn" : "slim-320.onnx";
        const std::string model = read_file(kModels + file);
        ASSERT_GT(model.size(), 1000u);
        std::string renamed = model;  // same length, so the file stays well-formed
        for (size_t at = 0; (at = renamed.find("scores", at)) != std::string::npos;) {
            renamed.replace(at, 6, "scorez");
        }
        const struct {
            const char *name;
            const char *content;  // null: no file
            std::string bytes;
            const char *reason;
        } cases[] = {
            {"missing", nullptr, "", "No such file or directory"},
            {"text", "not a model", "", ""},
            {"truncated", "", model.substr(0, model.size() / 2), ""},
            {"other output names", "", renamed, "no outputs named \"scores\" and \"boxes\""},
        };
        for (const auto &c : cases) {
            TempDir dir;
            if (c.content != nullptr) {
                write_file(dir.file(file), c.content[0] != '\0' ? std::string(c.content) : c.bytes);
            }
            OutputCapture err(2);
            OutputCapture out(1);
            SlimFaceDetector detector(dir.file("slim-320-quant-ADMM-50.mnn"), 480, 320, 1, -1, 0.65f, 0.3f,
                                      engine_name(kind));
            const std::vector<uint8_t> frame = grey_frame(416, 234);
            std::vector<FaceBox> faces;
            for (int i = 0; i < 2; ++i) {
                EXPECT_EQ(detector.detect(frame.data(), 416, 234, faces), 0);
            }
            const std::string lines = out.finish();
            const std::string complaint = err.finish();
            const std::string what = std::string(engine_name(kind)) + ", " + c.name;
            EXPECT_FALSE(detector.ready()) << what;
            EXPECT_TRUE(faces.empty()) << what;
            // Our line is the last; MNN may say a word of its own before it.
            const size_t ours = complaint.rfind("face detector: cannot ");
            ASSERT_NE(ours, std::string::npos) << what << ": " << complaint;
            EXPECT_EQ(count_of(complaint.substr(ours), "\n"), 1u) << what << ": " << complaint;
            EXPECT_NE(complaint.find(dir.file(file), ours), std::string::npos) << what << ": " << complaint;
            EXPECT_NE(complaint.find(c.reason, ours), std::string::npos) << what << ": " << complaint;
            // The priors still follow the frames; nothing runs.
            EXPECT_EQ(count_of(lines, "resolution changed."), 1u) << what;
            EXPECT_EQ(count_of(lines, "inference time:"), 0u) << what;
            EXPECT_EQ(detector.getNumAnchors(), 5752) << what;
        }
    }
}

#if FACEDET_TEST_HAS_ENGINE

TEST(Detector, ReinitialisesOnEverySizeChangeAndOnlyThen) {
    OutputCapture init(1);
    SlimFaceDetector detector(kModel, 480, 320, 2, -1, 0.65f, 0.3f);
    init.finish();
    ASSERT_TRUE(detector.ready());

    const std::vector<uint8_t> stream = grey_frame(416, 234);
    const std::vector<uint8_t> small = grey_frame(160, 120);
    std::vector<FaceBox> faces;
    // The first stream frame on an object built for 480x320; no face in it.
    // "resolution changed." has no line end of its own.
    OutputCapture first(1);
    detector.detect(stream.data(), 416, 234, faces);
    std::string text = first.finish();
    size_t next = 0;
    EXPECT_TRUE(timing_line_at(text, 0, "resolution changed.recount time :", &next)) << text;
    EXPECT_TRUE(timing_line_at(text, next, "inference time:", &next) && next == text.size()) << text;
    EXPECT_EQ(detector.getNumAnchors(), 5752);
    EXPECT_EQ(detector.getImageWidth(), 416);
    EXPECT_EQ(detector.getImageHeight(), 234);

    // Same size: only the inference line.
    OutputCapture same(1);
    detector.detect(stream.data(), 416, 234, faces);
    text = same.finish();
    EXPECT_TRUE(timing_line_at(text, 0, "inference time:", &next) && next == text.size()) << text;

    // Another size, then back: each change re-initialises, and the network
    // runs at the frame's own size.
    OutputCapture other(1);
    detector.detect(small.data(), 160, 120, faces);
    const int32_t smallAnchors = detector.getNumAnchors();
    EXPECT_EQ(detector.getImageWidth(), 160);
    detector.detect(stream.data(), 416, 234, faces);
    text = other.finish();
    EXPECT_EQ(count_of(text, "resolution changed."), 2u) << text;
    EXPECT_EQ(count_of(text, "inference time:"), 2u) << text;
    EXPECT_LT(smallAnchors, 5752);
    EXPECT_EQ(detector.getNumAnchors(), 5752);
    EXPECT_TRUE(faces.empty());
}

#endif

#if FACEDET_TEST_HAS_IMAGES

// A single clear face, 158x236 at (666, 76) in a 1024x566 photo, through the
// daemon's own detector.
TEST(Detector, FindsTheAnnotatedFaceInARealPhoto) {
    const cv::Mat photo = cv::imread(std::string(FACEDET_SHARED_DIR) +
                                     "/data/faces/images/13_Interview_Interview_On_Location_13_282.jpg");
    ASSERT_EQ(photo.cols, 1024);
    ASSERT_EQ(photo.rows, 566);
    // As the camera delivers it: the whole picture scaled to the stream size.
    cv::Mat frame;
    cv::resize(photo, frame, cv::Size(416, 234));

    OutputCapture out(1);
    const std::vector<FaceResult> faces = FaceDet_Detect(frame.ptr<uint8_t>(), 416, 234);
    out.finish();
    ASSERT_EQ(faces.size(), 1u);

    const double sx = 416.0 / 1024, sy = 234.0 / 566;
    const FaceBox truth = {float(666 * sx), float(76 * sy), float((666 + 158) * sx), float((76 + 236) * sy),
                           1};
    const FaceResult &f = faces[0];
    const FaceBox found = {float(f.x1), float(f.y1), float(f.x2), float(f.y2), f.score};
    EXPECT_GE(face_box_iou(truth, face_box_area(truth), found), 0.7) << f.x1 << " " << f.y1 << " " << f.x2;
    EXPECT_GT(f.score, 0.9f);
    EXPECT_LE(f.score, 1.0f);
}

#endif

}  // namespace
