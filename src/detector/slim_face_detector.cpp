#include "detector/slim_face_detector.h"

#include <chrono>
#include <cstdio>

#include "detector/box_decoding.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds_between(Clock::time_point start, Clock::time_point end) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(end - start).count() / 1000000000.0;
}

}  // namespace

SlimFaceDetector::SlimFaceDetector(const std::string &modelPath, int32_t width, int32_t height,
                                   int32_t threads, int32_t topK, float scoreThresh, float iouThresh,
                                   const std::string &engineName) {
    // No top-k cut anywhere: every cluster becomes a face.
    (void)topK;

    // 1. Constant tables; the derived lists start empty.
    minBoxes = {{10.0f, 16.0f, 24.0f}, {32.0f, 48.0f}, {64.0f, 96.0f}, {128.0f, 192.0f, 256.0f}};
    strides = {8.0f, 16.0f, 32.0f, 64.0f};
    featureMapSizes.clear();
    shrinkages.clear();
    inputSizes.clear();
    priors.clear();

    const Clock::time_point start = Clock::now();

    // 2. Model and session.
    EngineInputFormat format;
    for (int c = 0; c < 3; ++c) {
        format.meanVals[c] = meanVals[c];
        format.normVals[c] = normVals[c];
    }
    // The engines' workers spin between layers: see granted_threads().
    engine = create_named_inference_engine(engineName, modelPath, granted_threads(threads), format);

    numThread = threads;
    scoreThreshold = scoreThresh;
    iouThreshold = iouThresh;
    inputWidth = width;
    inputHeight = height;

    // 3. Priors of the initial input size.
    generatePriors();

    const Clock::time_point end = Clock::now();
    if (engine != nullptr) {
        // What a replay or a log reader needs to know which network ran.
        printf("face detector: engine %s, model %s, %d threads\n", engine->name(),
               engine->modelFile().c_str(), engine->threads());
    }
    printf("init time:%g s\n", seconds_between(start, end));
    fflush(stdout);
}

SlimFaceDetector::~SlimFaceDetector() {
    // Model and session go first; the lists and then the engine itself follow
    // as members, in reverse order of declaration.
    if (engine != nullptr) {
        engine->release();
    }
}

void SlimFaceDetector::generatePriors() {
    inputSizes = {inputWidth, inputHeight};
    numAnchors =
        generate_priors(inputWidth, inputHeight, strides, minBoxes, featureMapSizes, shrinkages, priors);
}

void SlimFaceDetector::resetInputSize(int32_t width, int32_t height) {
    inputWidth = width;
    inputHeight = height;
    generatePriors();
}

bool SlimFaceDetector::decodeBoxes(std::vector<FaceBox> &candidates, const EngineOutputs &outputs) {
    const DecodeParams params = {scoreThreshold, centerVariance, sizeVariance, imageWidth, imageHeight};
    return decode_boxes(outputs.scores, outputs.scoreCount, outputs.boxes, outputs.boxCount, priors,
                        numAnchors, params, candidates);
}

void SlimFaceDetector::nms(std::vector<FaceBox> &input, std::vector<FaceBox> &output, int32_t type) {
    non_maximum_suppression(input, output, type, iouThreshold, nmsScratch);
}

int32_t SlimFaceDetector::detect(const uint8_t *image, int32_t width, int32_t height,
                                 std::vector<FaceBox> &faces) {
    if (image == nullptr || width <= 0 || height <= 0) {
        return 0;
    }

    if (inputWidth != width || inputHeight != height) {
        const Clock::time_point start = Clock::now();
        resetInputSize(width, height);
        const Clock::time_point end = Clock::now();
        printf("resolution changed.");
        printf("recount time :%g s\n", seconds_between(start, end));
    }
    imageWidth = inputWidth;
    imageHeight = inputHeight;

    if (!ready()) {
        return 0;
    }

    engine->prepare(image, inputWidth, inputHeight);
    const Clock::time_point start = Clock::now();
    EngineOutputs outputs;
    engine->run(&outputs);
    const Clock::time_point end = Clock::now();
    printf("inference time:%g s\n", seconds_between(start, end));

    std::vector<FaceBox> candidates;
    if (!decodeBoxes(candidates, outputs)) {
        if (!outputMismatchReported) {
            outputMismatchReported = true;
            fprintf(stderr,
                    "face detector: model %s gave %zu \"scores\" and %zu \"boxes\" values for %d priors "
                    "(%dx%d input); no faces are detected\n",
                    engine->modelFile().c_str(), outputs.scoreCount, outputs.boxCount, numAnchors, inputWidth,
                    inputHeight);
        }
        return 0;
    }
    nms(candidates, faces, BLENDING_NMS);
    return 0;
}
