#include "detector/inference_engine.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "detector/engine_factories.h"

std::vector<EngineKind> built_engines() {
    std::vector<EngineKind> kinds;
#if FACEDET_HAVE_MNN_ENGINE
    kinds.push_back(EngineKind::kMnn);
#endif
#if FACEDET_HAVE_OPENCV_ENGINE
    kinds.push_back(EngineKind::kOpenCvDnn);
#endif
    return kinds;
}

const char *engine_name(EngineKind kind) {
    switch (kind) {
        case EngineKind::kMnn:
            return "mnn";
        case EngineKind::kOpenCvDnn:
            return "opencv-dnn";
    }
    return "unknown";
}

std::unique_ptr<InferenceEngine> create_inference_engine(EngineKind kind, const std::string &modelPath,
                                                         int32_t numThread, const EngineInputFormat &format) {
    (void)modelPath;
    (void)numThread;
    (void)format;
    switch (kind) {
        case EngineKind::kMnn:
#if FACEDET_HAVE_MNN_ENGINE
            return create_mnn_engine(modelPath, numThread, format);
#else
            break;
#endif
        case EngineKind::kOpenCvDnn:
#if FACEDET_HAVE_OPENCV_ENGINE
            return create_opencv_dnn_engine(modelPath, numThread, format);
#else
            break;
#endif
    }
    return nullptr;
}

std::unique_ptr<InferenceEngine> create_inference_engine(const std::string &modelPath, int32_t numThread,
                                                         const EngineInputFormat &format) {
    const std::vector<EngineKind> kinds = built_engines();
    if (kinds.empty()) {
        fprintf(stderr,
                "face detector: this build has no inference engine; %s is not loaded and no faces "
                "will be detected\n",
                modelPath.c_str());
        return nullptr;
    }
    return create_inference_engine(kinds.front(), modelPath, numThread, format);
}

std::string sibling_model_path(const std::string &modelPath, const char *fileName) {
    const size_t slash = modelPath.rfind('/');
    if (slash == std::string::npos) {
        return fileName;
    }
    return modelPath.substr(0, slash + 1) + fileName;
}

std::string unreadable_reason(const std::string &path) {
    FILE *f = fopen(path.c_str(), "rb");
    if (f == nullptr) {
        return strerror(errno);
    }
    fclose(f);
    return std::string();
}
