/*
 * The seam between the detector and whatever runs the face network. Priors,
 * decoding, suppression, timing and the printed lines are common; an engine
 * only feeds one frame to the network and hands back the two outputs.
 *
 * Engines, chosen at build time:
 *   mnn     the camera's engine, on the quantised .mnn model (built when the
 *           build is given MNN_ROOT)
 *   opencv  OpenCV's DNN module on slim-320.onnx, the float export of the same
 *           network, found beside the .mnn model (host builds with OpenCV)
 * Without either the detector loads nothing and finds no faces.
 *
 * Engines are thread-bound: one thread at a time, like the detector.
 */
#ifndef FACEDET_DETECTOR_INFERENCE_ENGINE_H
#define FACEDET_DETECTOR_INFERENCE_ENGINE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// The network's two outputs after a run, read in place as flat float arrays.
// They stay valid until the next prepare() of the same engine.
struct EngineOutputs {
    const float *scores = nullptr;  // "scores": background and face probability per prior
    size_t scoreCount = 0;          // number of floats behind scores
    const float *boxes = nullptr;   // "boxes": four regression values per prior
    size_t boxCount = 0;
};

// Per-channel preprocessing: (value - mean) x normal, channels in RGB order.
struct EngineInputFormat {
    float meanVals[3];
    float normVals[3];
};

enum class EngineKind {
    kMnn,
    kOpenCvDnn,
};

class InferenceEngine {
  public:
    virtual ~InferenceEngine() = default;

    // False when the model could not be loaded; the reason has been printed.
    virtual bool ready() const = 0;

    // The file the engine loaded (or tried to), for messages.
    virtual const std::string &modelFile() const = 0;

    // Sizes the network input to width x height and writes the packed BGR
    // frame (rows of width x 3 bytes) into it, converted to RGB and
    // normalised. The network runs at the frame's own size.
    virtual void prepare(const uint8_t *bgr, int32_t width, int32_t height) = 0;

    // Runs the network and fetches its outputs. This is the stretch the
    // detector times as "inference time".
    virtual void run(EngineOutputs *outputs) = 0;

    // Frees the model, then the session, ahead of the destruction of the rest
    // of the detector. Nothing may be run afterwards.
    virtual void release() {}
};

// Engines compiled into this build, the camera's own first.
std::vector<EngineKind> built_engines();
const char *engine_name(EngineKind kind);

// The engine the detector uses: the first built one, or null when the build
// has none (a line saying so has then been printed).
std::unique_ptr<InferenceEngine> create_inference_engine(const std::string &modelPath, int32_t numThread,
                                                         const EngineInputFormat &format);

// A given engine; null when it is not built. modelPath is always the .mnn
// path the detector was given: an engine that runs another file finds it in
// the same directory.
std::unique_ptr<InferenceEngine> create_inference_engine(EngineKind kind, const std::string &modelPath,
                                                         int32_t numThread, const EngineInputFormat &format);

// fileName in the directory of modelPath ("./a.mnn", "b.onnx" -> "./b.onnx").
std::string sibling_model_path(const std::string &modelPath, const char *fileName);

// Empty when path can be opened for reading, else why not (strerror text).
std::string unreadable_reason(const std::string &path);

#endif
