/*
 * Factories of the engines this build compiles, one per engine unit; only
 * inference_engine.cpp chooses among them.
 */
#ifndef FACEDET_DETECTOR_ENGINE_FACTORIES_H
#define FACEDET_DETECTOR_ENGINE_FACTORIES_H

#include <memory>
#include <string>

#include "detector/inference_engine.h"

// What both engines keep of their model: the file, the threads and the input
// format asked for, and whether the model loaded.
class ModelEngine : public InferenceEngine {
  public:
    bool ready() const override { return ready_; }
    const std::string &modelFile() const override { return modelFile_; }
    int32_t threads() const override { return numThread_; }

  protected:
    ModelEngine(std::string modelFile, int32_t numThread, const EngineInputFormat &format)
        : modelFile_(std::move(modelFile)), numThread_(numThread), format_(format) {}

    // The engines' libraries say little of a missing or unreadable file: the
    // line names it and the reason. False when it cannot be read.
    bool model_readable() const;

    const std::string modelFile_;
    const int32_t numThread_;
    const EngineInputFormat format_;
    bool ready_ = false;
};

// Both engines refuse a network without the two outputs decoding reads, in
// the same words: prints the line and returns false.
bool refuse_model_without_outputs(const std::string &modelFile);

#if FACEDET_HAVE_MNN_ENGINE
std::unique_ptr<InferenceEngine> create_mnn_engine(const std::string &modelPath, int32_t numThread,
                                                   const EngineInputFormat &format);
#endif
#if FACEDET_HAVE_OPENCV_ENGINE
std::unique_ptr<InferenceEngine> create_opencv_dnn_engine(const std::string &modelPath, int32_t numThread,
                                                          const EngineInputFormat &format);
#endif

#endif
