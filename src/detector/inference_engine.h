/*
 * The seam between the detector and whatever runs the face network. Priors,
 * decoding, suppression, timing and the printed lines are common; an engine
 * only feeds one frame to the network and hands back the two outputs.
 *
 * Engines, built when their library is found:
 *   mnn     the camera's engine, on the quantised .mnn model itself; the
 *           default wherever it is built, PCs included
 *   opencv  OpenCV's DNN module on slim-320.onnx, the float export of the same
 *           network, found beside the .mnn model (host builds with OpenCV);
 *           kept to compare against
 * The environment variable FACEDET_ENGINE picks one by name. Without any the
 * detector loads nothing and finds no faces.
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

    // engine_name() of this engine.
    virtual const char *name() const = 0;

    // Worker threads the engine runs with (it may grant fewer than asked).
    virtual int32_t threads() const = 0;

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
// "mnn", "opencv".
const char *engine_name(EngineKind kind);
// False for a name that is no engine.
bool engine_from_name(const std::string &name, EngineKind *kind);
// The built engines' names, space-separated ("none" without any).
std::string built_engine_names();

// The variable that picks the engine of every detector built without an
// explicit engine name, the daemon's included.
constexpr const char *kEngineVariable = "FACEDET_ENGINE";

// The engine named `name`; an empty name means $FACEDET_ENGINE, and when that
// is unset or empty the first built engine. Null when the name is unknown,
// the engine is not built in, or the build has none: one line on stderr
// then says which, and the detector finds no faces.
std::unique_ptr<InferenceEngine> create_named_inference_engine(const std::string &name,
                                                               const std::string &modelPath,
                                                               int32_t numThread,
                                                               const EngineInputFormat &format);

// A given engine; null when it is not built. modelPath is always the .mnn
// path the detector was given: an engine that runs another file finds it in
// the same directory.
std::unique_ptr<InferenceEngine> create_inference_engine(EngineKind kind, const std::string &modelPath,
                                                         int32_t numThread, const EngineInputFormat &format);

// The worker threads the detector gives its engine for `requested`: at least
// 1 and at most one less than the cores. Both engines' workers spin (sched_yield) between
// the layers of a run; with as many threads as cores or more they take the
// CPU the frame loop, the encoder and the running thread need, for little
// speed-up.
int32_t granted_threads(int32_t requested);

// fileName in the directory of modelPath ("./a.mnn", "b.onnx" -> "./b.onnx").
std::string sibling_model_path(const std::string &modelPath, const char *fileName);

// Empty when path can be opened for reading, else why not (strerror text).
std::string unreadable_reason(const std::string &path);

#endif
