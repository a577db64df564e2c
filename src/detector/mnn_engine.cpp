/*
 * The face network on MNN, the camera's engine, on the quantised model
 * itself. The calls and their order are the ones the camera build has always
 * made: the input tensor and the session are resized on every frame, a new
 * image converter is made per frame, and the output host copies stay inside
 * the timed stretch although decoding reads the session's own outputs (on the
 * CPU back end they hold the same values). Keep it so: the printed inference
 * times are compared across releases.
 */
#include <cstdio>

#include <MNN/ImageProcess.hpp>
#include <MNN/Interpreter.hpp>
#include <MNN/MNNForwardType.h>
#include <MNN/Tensor.hpp>

#include "detector/engine_factories.h"
#include "detector/inference_engine.h"

namespace {

class MnnEngine final : public ModelEngine {
  public:
    MnnEngine(const std::string &modelPath, int32_t numThread, const EngineInputFormat &format)
        : ModelEngine(modelPath, numThread, format) {
        ready_ = load();
    }

    ~MnnEngine() override { release(); }

    const char *name() const override { return engine_name(EngineKind::kMnn); }

    void prepare(const uint8_t *bgr, int32_t width, int32_t height) override {
        if (!ready_) {
            return;
        }
        interpreter->resizeTensor(inputTensor, {1, 3, height, width});
        interpreter->resizeSession(session);

        // Made for this frame and dropped with it.
        std::shared_ptr<MNN::CV::ImageProcess> pretreat(MNN::CV::ImageProcess::create(
            MNN::CV::BGR, MNN::CV::RGB, format_.meanVals, 3, format_.normVals, 3));
        if (pretreat == nullptr) {
            return;
        }
        pretreat->convert(bgr, width, height, width * 3, inputTensor);
    }

    void run(EngineOutputs *outputs) override {
        *outputs = EngineOutputs();
        if (!ready_) {
            return;
        }
        interpreter->runSession(session);

        MNN::Tensor *tensorScores = interpreter->getSessionOutput(session, "scores");
        MNN::Tensor *tensorBoxes = interpreter->getSessionOutput(session, "boxes");
        if (tensorScores == nullptr || tensorBoxes == nullptr) {
            return;
        }
        {
            MNN::Tensor tensorScoresHost(tensorScores, tensorScores->getDimensionType());
            tensorScores->copyToHostTensor(&tensorScoresHost);
            MNN::Tensor tensorBoxesHost(tensorBoxes, tensorBoxes->getDimensionType());
            tensorBoxes->copyToHostTensor(&tensorBoxesHost);
        }

        outputs->scores = tensorScores->host<float>();
        outputs->scoreCount =
            outputs->scores != nullptr ? static_cast<size_t>(tensorScores->elementSize()) : 0;
        outputs->boxes = tensorBoxes->host<float>();
        outputs->boxCount = outputs->boxes != nullptr ? static_cast<size_t>(tensorBoxes->elementSize()) : 0;
    }

    void release() override {
        if (interpreter == nullptr || released_) {
            return;
        }
        released_ = true;
        interpreter->releaseModel();
        if (session != nullptr) {
            interpreter->releaseSession(session);
            session = nullptr;
        }
        inputTensor = nullptr;
        ready_ = false;
    }

  private:
    bool load() {
        if (!model_readable()) {
            return false;
        }
        interpreter.reset(MNN::Interpreter::createFromFile(modelFile_.c_str()));
        if (interpreter == nullptr) {
            fprintf(stderr, "face detector: cannot load model %s: not a model MNN can read\n",
                    modelFile_.c_str());
            return false;
        }

        MNN::ScheduleConfig config;
        config.type = MNN_FORWARD_CPU;
        config.numThread = numThread_;
        config.backupType = MNN_FORWARD_CPU;
        MNN::BackendConfig backendConfig;
        backendConfig.memory = MNN::BackendConfig::Memory_Normal;
        backendConfig.power = MNN::BackendConfig::Power_Normal;
        backendConfig.precision = MNN::BackendConfig::Precision_Low;
        backendConfig.sharedContext = nullptr;
        config.backendConfig = &backendConfig;

        session = interpreter->createSession(config);
        if (session == nullptr) {
            fprintf(stderr, "face detector: cannot use model %s: MNN created no session\n",
                    modelFile_.c_str());
            return false;
        }
        inputTensor = interpreter->getSessionInput(session, nullptr);
        if (inputTensor == nullptr) {
            fprintf(stderr, "face detector: cannot use model %s: it has no input\n", modelFile_.c_str());
            return false;
        }
        if (interpreter->getSessionOutput(session, "scores") == nullptr ||
            interpreter->getSessionOutput(session, "boxes") == nullptr) {
            return refuse_model_without_outputs(modelFile_);
        }
        return true;
    }

    bool released_ = false;

    // Named as on the camera.
    std::shared_ptr<MNN::Interpreter> interpreter;
    MNN::Session *session = nullptr;
    MNN::Tensor *inputTensor = nullptr;
};

}  // namespace

std::unique_ptr<InferenceEngine> create_mnn_engine(const std::string &modelPath, int32_t numThread,
                                                   const EngineInputFormat &format) {
    return std::make_unique<MnnEngine>(modelPath, numThread, format);
}
