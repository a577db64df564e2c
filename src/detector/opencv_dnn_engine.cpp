/*
 * The face network on OpenCV's DNN module, for PCs without MNN. It runs
 * slim-320.onnx, the float export of the camera's quantised model, which takes
 * any input size and lays its priors out in the same order. Preprocessing is
 * the camera's: BGR to RGB, (v - 127) / 128, no resampling.
 */
#include <cstdio>

#include <opencv2/core.hpp>
#include <opencv2/dnn.hpp>

#include "detector/engine_factories.h"
#include "detector/inference_engine.h"

namespace {

constexpr const char *kOnnxFile = "slim-320.onnx";
constexpr const char *kInputName = "input";

class OpenCvDnnEngine final : public ModelEngine {
  public:
    OpenCvDnnEngine(const std::string &modelPath, int32_t numThread, const EngineInputFormat &format)
        : ModelEngine(sibling_model_path(modelPath, kOnnxFile), numThread < 1 ? 1 : numThread, format) {
        ready_ = load();
        if (ready_) {
            cv::setNumThreads(numThread_);
        }
    }

    const char *name() const override { return engine_name(EngineKind::kOpenCvDnn); }

    void prepare(const uint8_t *bgr, int32_t width, int32_t height) override {
        // The blob is reallocated only when the frame size changes.
        const int shape[4] = {1, 3, height, width};
        if (blob_.dims != 4 || blob_.size[2] != height || blob_.size[3] != width) {
            blob_.create(4, shape, CV_32F);
        }
        const size_t plane = static_cast<size_t>(width) * static_cast<size_t>(height);
        float *red = blob_.ptr<float>();
        float *green = red + plane;
        float *blue = green + plane;
        const float *mean = format_.meanVals;
        const float *norm = format_.normVals;
        for (size_t p = 0; p < plane; ++p) {
            const uint8_t *px = bgr + 3 * p;
            red[p] = (static_cast<float>(px[2]) - mean[0]) * norm[0];
            green[p] = (static_cast<float>(px[1]) - mean[1]) * norm[1];
            blue[p] = (static_cast<float>(px[0]) - mean[2]) * norm[2];
        }
        net_.setInput(blob_, kInputName);
    }

    void run(EngineOutputs *outputs) override {
        *outputs = EngineOutputs();
        // The thread count is process-wide in OpenCV; set it again only when
        // another engine changed it (the benchmarks keep several).
        if (cv::getNumThreads() != numThread_) {
            cv::setNumThreads(numThread_);
        }
        try {
            net_.forward(outs_, outNames_);
        } catch (const cv::Exception &e) {
            // Reported by the detector as outputs that do not fit the priors.
            outs_.clear();
            if (!runFailureReported_) {
                runFailureReported_ = true;
                fprintf(stderr, "face detector: %s failed to run: %s\n", modelFile_.c_str(), e.err.c_str());
            }
            return;
        }
        if (outs_.size() != 2) {
            return;
        }
        const cv::Mat &scores = outs_[0];
        const cv::Mat &boxes = outs_[1];
        if (scores.type() == CV_32F && scores.isContinuous()) {
            outputs->scores = scores.ptr<float>();
            outputs->scoreCount = scores.total();
        }
        if (boxes.type() == CV_32F && boxes.isContinuous()) {
            outputs->boxes = boxes.ptr<float>();
            outputs->boxCount = boxes.total();
        }
    }

  private:
    bool load() {
        if (!model_readable()) {
            return false;
        }
        try {
            net_ = cv::dnn::readNetFromONNX(modelFile_);
        } catch (const cv::Exception &e) {
            fprintf(stderr, "face detector: cannot load model %s: %s\n", modelFile_.c_str(), e.err.c_str());
            return false;
        }
        if (net_.empty()) {
            fprintf(stderr, "face detector: cannot load model %s: no layers\n", modelFile_.c_str());
            return false;
        }
        bool hasScores = false;
        bool hasBoxes = false;
        for (const std::string &name : net_.getUnconnectedOutLayersNames()) {
            hasScores = hasScores || name == outNames_[0];
            hasBoxes = hasBoxes || name == outNames_[1];
        }
        if (!hasScores || !hasBoxes) {
            return refuse_model_without_outputs(modelFile_);
        }
        net_.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
        net_.setPreferableTarget(cv::dnn::DNN_TARGET_CPU);
        return true;
    }

    bool runFailureReported_ = false;
    cv::dnn::Net net_;
    cv::Mat blob_;
    std::vector<cv::Mat> outs_;
    const std::vector<std::string> outNames_{"scores", "boxes"};
};

}  // namespace

std::unique_ptr<InferenceEngine> create_opencv_dnn_engine(const std::string &modelPath, int32_t numThread,
                                                          const EngineInputFormat &format) {
    return std::make_unique<OpenCvDnnEngine>(modelPath, numThread, format);
}
