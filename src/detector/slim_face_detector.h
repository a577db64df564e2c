/*
 * The face detector: one small video frame in, face rectangles with scores
 * out. It wraps a single-shot face network (run by an inference engine, see
 * inference_engine.h), decodes its outputs against the anchor priors of the
 * current input size and merges overlapping detections.
 *
 * The process has one, g_faceDetector (face_det_api.h), built before main.
 * Thread-bound: only the frame thread calls detect, one frame at a time.
 */
#ifndef FACEDET_DETECTOR_SLIM_FACE_DETECTOR_H
#define FACEDET_DETECTOR_SLIM_FACE_DETECTOR_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "detector/face_box.h"
#include "detector/inference_engine.h"
#include "detector/nms.h"
#include "detector/priors.h"

class SlimFaceDetector {
  public:
    // Loads the model and builds the priors for inputWidth x inputHeight.
    // topK is accepted and deliberately ignored: no top-k cut is applied.
    // engine names the inference engine (inference_engine.h); empty means
    // $FACEDET_ENGINE, else the camera's. The engine, its model file and its
    // thread count are printed in one line on stdout. A model or engine that
    // cannot be loaded is reported in one line on stderr; the detector then
    // finds no faces (ready() is false).
    SlimFaceDetector(const std::string &modelPath, int32_t inputWidth, int32_t inputHeight, int32_t numThread,
                     int32_t topK, float scoreThreshold, float iouThreshold,
                     const std::string &engine = std::string());
    ~SlimFaceDetector();
    SlimFaceDetector(const SlimFaceDetector &) = delete;
    SlimFaceDetector &operator=(const SlimFaceDetector &) = delete;

    // image: width x height packed 8-bit BGR, rows of exactly width x 3 bytes.
    // Appends the faces found to faces, best first. Always returns 0.
    int32_t detect(const uint8_t *image, int32_t width, int32_t height, std::vector<FaceBox> &faces);

    // Builds inputSizes, featureMapSizes, shrinkages and priors for the
    // current input size and sets numAnchors.
    void generatePriors();
    // Switches the input size and regenerates the priors for it.
    void resetInputSize(int32_t width, int32_t height);
    // Appends the candidates above the score threshold. False (nothing
    // appended) when the outputs do not hold numAnchors entries each.
    bool decodeBoxes(std::vector<FaceBox> &candidates, const EngineOutputs &outputs);
    // Sorts input and appends one face per cluster to output (see nms.h).
    void nms(std::vector<FaceBox> &input, std::vector<FaceBox> &output, int32_t type);

    bool ready() const { return engine != nullptr && engine->ready(); }
    // The engine's name and model file; "none" and "" without an engine.
    const char *engineName() const { return engine != nullptr ? engine->name() : "none"; }
    std::string modelFile() const { return engine != nullptr ? engine->modelFile() : std::string(); }
    int32_t getInputWidth() const { return inputWidth; }
    int32_t getInputHeight() const { return inputHeight; }
    int32_t getImageWidth() const { return imageWidth; }
    int32_t getImageHeight() const { return imageHeight; }
    int32_t getNumAnchors() const { return numAnchors; }
    int32_t getNumThread() const { return numThread; }
    float getScoreThreshold() const { return scoreThreshold; }
    float getIouThreshold() const { return iouThreshold; }
    const std::vector<Prior> &getPriors() const { return priors; }
    const std::vector<std::vector<float>> &getFeatureMapSizes() const { return featureMapSizes; }

  private:
    // The engine holds what the camera build keeps here: the interpreter, the
    // session and the input tensor.
    std::unique_ptr<InferenceEngine> engine;
    int32_t numThread = 0;
    int32_t imageWidth = 0;
    int32_t imageHeight = 0;
    int32_t inputWidth = 0;
    int32_t inputHeight = 0;
    int32_t numAnchors = 0;
    float scoreThreshold = 0.0f;
    float iouThreshold = 0.0f;
    float meanVals[3] = {127.0f, 127.0f, 127.0f};
    float normVals[3] = {1.0f / 128, 1.0f / 128, 1.0f / 128};
    float centerVariance = 0.1f;
    float sizeVariance = 0.2f;
    std::vector<std::vector<float>> minBoxes;
    std::vector<float> strides;
    std::vector<std::vector<float>> featureMapSizes;
    std::vector<std::vector<float>> shrinkages;
    std::vector<int32_t> inputSizes;
    std::vector<Prior> priors;

    // Kept between frames so that suppression does not allocate.
    NmsScratch nmsScratch;
    // The mismatch of model outputs and priors is reported once.
    bool outputMismatchReported = false;
};

#endif
