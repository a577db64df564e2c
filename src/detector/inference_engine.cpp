#include "detector/inference_engine.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

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
            return "opencv";
    }
    return "unknown";
}

bool engine_from_name(const std::string &name, EngineKind *kind) {
    for (EngineKind k : {EngineKind::kMnn, EngineKind::kOpenCvDnn}) {
        if (name == engine_name(k)) {
            *kind = k;
            return true;
        }
    }
    return false;
}

std::string built_engine_names() {
    std::string names;
    for (EngineKind k : built_engines()) {
        names += names.empty() ? "" : " ";
        names += engine_name(k);
    }
    return names.empty() ? "none" : names;
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

std::unique_ptr<InferenceEngine> create_named_inference_engine(const std::string &name,
                                                               const std::string &modelPath,
                                                               int32_t numThread,
                                                               const EngineInputFormat &format) {
    std::string wanted = name;
    const char *source = "engine";
    if (wanted.empty()) {
        const char *fromEnvironment = getenv(kEngineVariable);
        if (fromEnvironment != nullptr && fromEnvironment[0] != '\0') {
            wanted = fromEnvironment;
            source = kEngineVariable;
        }
    }
    const std::vector<EngineKind> kinds = built_engines();
    if (wanted.empty()) {
        if (kinds.empty()) {
            fprintf(stderr,
                    "face detector: this build has no inference engine; %s is not loaded and no faces "
                    "will be detected\n",
                    modelPath.c_str());
            return nullptr;
        }
        return create_inference_engine(kinds.front(), modelPath, numThread, format);
    }
    EngineKind kind;
    if (!engine_from_name(wanted, &kind)) {
        fprintf(
            stderr,
            "face detector: unknown %s '%s' (this build has: %s); no model is loaded and no faces will be "
            "detected\n",
            source, wanted.c_str(), built_engine_names().c_str());
        return nullptr;
    }
    std::unique_ptr<InferenceEngine> engine = create_inference_engine(kind, modelPath, numThread, format);
    if (engine == nullptr) {
        fprintf(
            stderr,
            "face detector: %s '%s' is not built in (this build has: %s); no model is loaded and no faces "
            "will be detected\n",
            source, wanted.c_str(), built_engine_names().c_str());
    }
    return engine;
}

int32_t granted_threads(int32_t requested) {
    const int32_t cores = static_cast<int32_t>(std::thread::hardware_concurrency());
    const int32_t most = cores > 1 ? cores - 1 : 1;
    return requested < 1 ? 1 : (requested > most ? most : requested);
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

bool refuse_model_without_outputs(const std::string &modelFile) {
    fprintf(stderr, "face detector: cannot use model %s: it has no outputs named \"scores\" and \"boxes\"\n",
            modelFile.c_str());
    return false;
}

bool ModelEngine::model_readable() const {
    const std::string why = unreadable_reason(modelFile_);
    if (!why.empty()) {
        fprintf(stderr, "face detector: cannot load model %s: %s\n", modelFile_.c_str(), why.c_str());
        return false;
    }
    return true;
}
