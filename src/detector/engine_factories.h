/*
 * Factories of the engines this build compiles, one per engine unit; only
 * inference_engine.cpp chooses among them.
 */
#ifndef FACEDET_DETECTOR_ENGINE_FACTORIES_H
#define FACEDET_DETECTOR_ENGINE_FACTORIES_H

#include <memory>
#include <string>

#include "detector/inference_engine.h"

#if FACEDET_HAVE_MNN_ENGINE
std::unique_ptr<InferenceEngine> create_mnn_engine(const std::string &modelPath, int32_t numThread,
                                                   const EngineInputFormat &format);
#endif
#if FACEDET_HAVE_OPENCV_ENGINE
std::unique_ptr<InferenceEngine> create_opencv_dnn_engine(const std::string &modelPath, int32_t numThread,
                                                          const EngineInputFormat &format);
#endif

#endif
