/*
 * Face detector benchmarks. Each runs repeatedly and reports mean, median,
 * min and max over the repetitions.
 *
 *   inference/<engine>/threads:N  one 416x234 frame through the network
 *                                 (input conversion, run, output fetch) with
 *                                 N worker threads asked for, wall-clock time
 *                                 and the CPU time of all threads; the frame
 *                                 budget of the 30 fps stream is 33 ms.
 *                                 Engines: mnn (the camera's quantised
 *                                 network) and opencv (its float export)
 *   priors/WxH                    prior generation for the initial 480x320
 *                                 input and the 416x234 stream
 *   decode_nms/candidates:K       decoding all 5752 priors of the stream with
 *                                 K of them above the threshold, then
 *                                 blending suppression; K = 0 is the bare scan
 */
#include <algorithm>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "detector/box_decoding.h"
#include "detector/inference_engine.h"
#include "detector/nms.h"
#include "detector/priors.h"

#if FACEDET_BENCH_HAS_IMAGES
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

constexpr int kWidth = 416;
constexpr int kHeight = 234;
const std::string kModel = std::string(FACEDET_SHARED_DIR) + "/models/slim-320-quant-ADMM-50.mnn";
const std::vector<float> kStrides = {8, 16, 32, 64};
const std::vector<std::vector<float>> kMinBoxes = {{10, 16, 24}, {32, 48}, {64, 96}, {128, 192, 256}};
constexpr int kRepetitions = 5;

void add_min_max(benchmark::internal::Benchmark *b) {
    b->Repetitions(kRepetitions)->ReportAggregatesOnly(true);
    b->ComputeStatistics("min",
                         [](const std::vector<double> &v) { return *std::min_element(v.begin(), v.end()); });
    b->ComputeStatistics("max",
                         [](const std::vector<double> &v) { return *std::max_element(v.begin(), v.end()); });
}

// The stream frame: a photo with one face scaled as the camera scales, or a
// flat grey frame when images cannot be read.
std::vector<uint8_t> stream_frame() {
    std::vector<uint8_t> frame(static_cast<size_t>(kWidth) * kHeight * 3, 128);
#if FACEDET_BENCH_HAS_IMAGES
    const cv::Mat photo = cv::imread(std::string(FACEDET_SHARED_DIR) +
                                     "/data/faces/images/13_Interview_Interview_On_Location_13_282.jpg");
    if (!photo.empty()) {
        cv::Mat scaled;
        cv::resize(photo, scaled, cv::Size(kWidth, kHeight));
        std::copy(scaled.datastart, scaled.dataend, frame.begin());
    }
#endif
    return frame;
}

void bm_inference(benchmark::State &state, EngineKind kind) {
    const int32_t threads = static_cast<int32_t>(state.range(0));
    const EngineInputFormat format = {{127, 127, 127}, {1.0f / 128, 1.0f / 128, 1.0f / 128}};
    std::unique_ptr<InferenceEngine> engine = create_inference_engine(kind, kModel, threads, format);
    if (engine == nullptr || !engine->ready()) {
        state.SkipWithError("model not loadable");
        return;
    }
    const std::vector<uint8_t> frame = stream_frame();
    EngineOutputs outputs;
    // Warm-up: the first run sizes the network for the frame.
    engine->prepare(frame.data(), kWidth, kHeight);
    engine->run(&outputs);
    for (auto _ : state) {
        engine->prepare(frame.data(), kWidth, kHeight);
        engine->run(&outputs);
        benchmark::DoNotOptimize(outputs.scores);
    }
    state.counters["threads"] = threads;
}

void bm_priors(benchmark::State &state) {
    const int32_t width = static_cast<int32_t>(state.range(0));
    const int32_t height = static_cast<int32_t>(state.range(1));
    std::vector<std::vector<float>> featureMapSizes, shrinkages;
    std::vector<Prior> priors;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            generate_priors(width, height, kStrides, kMinBoxes, featureMapSizes, shrinkages, priors));
    }
}

void bm_decode_nms(benchmark::State &state) {
    std::vector<std::vector<float>> featureMapSizes, shrinkages;
    std::vector<Prior> priors;
    const int32_t anchors =
        generate_priors(kWidth, kHeight, kStrides, kMinBoxes, featureMapSizes, shrinkages, priors);
    // Background everywhere but K evenly spread priors; zero regressions, so
    // candidates are the prior boxes and neighbours of one cell cluster.
    const int64_t wanted = state.range(0);
    std::vector<float> scores(2 * static_cast<size_t>(anchors));
    std::vector<float> boxes(4 * static_cast<size_t>(anchors), 0.0f);
    for (int32_t n = 0; n < anchors; ++n) {
        scores[2 * n] = 0.9f;
        scores[2 * n + 1] = 0.1f;
    }
    for (int64_t k = 0; k < wanted; ++k) {
        const size_t n = static_cast<size_t>(k * anchors / wanted);
        scores[2 * n] = 0.1f;
        scores[2 * n + 1] = 0.7f + 0.25f * static_cast<float>(k % 7) / 7;
    }
    const DecodeParams params = {0.65f, 0.1f, 0.2f, kWidth, kHeight};
    NmsScratch scratch;
    std::vector<FaceBox> faces;
    size_t found = 0;
    for (auto _ : state) {
        // A fresh candidate list per frame, as the detector makes it.
        std::vector<FaceBox> candidates;
        decode_boxes(scores.data(), scores.size(), boxes.data(), boxes.size(), priors, anchors, params,
                     candidates);
        faces.clear();
        non_maximum_suppression(candidates, faces, BLENDING_NMS, 0.3f, scratch);
        found = faces.size();
        benchmark::DoNotOptimize(faces.data());
    }
    state.counters["faces"] = static_cast<double>(found);
}

int register_benchmarks() {
    for (EngineKind kind : built_engines()) {
        const std::string name = std::string("inference/") + engine_name(kind);
        benchmark::internal::Benchmark *b = benchmark::RegisterBenchmark(name.c_str(), bm_inference, kind);
        // CPU time of the whole process: worker threads that spin count.
        b->Arg(1)->Arg(2)->ArgName("threads")->UseRealTime()->MeasureProcessCPUTime()->Unit(
            benchmark::kMillisecond);
        add_min_max(b);
    }
    add_min_max(benchmark::RegisterBenchmark("priors", bm_priors)
                    ->Args({480, 320})
                    ->Args({416, 234})
                    ->ArgNames({"w", "h"})
                    ->Unit(benchmark::kMicrosecond));
    add_min_max(benchmark::RegisterBenchmark("decode_nms", bm_decode_nms)
                    ->Arg(0)
                    ->Arg(10)
                    ->Arg(200)
                    ->ArgName("candidates")
                    ->Unit(benchmark::kMicrosecond));
    return 0;
}

const int registered = register_benchmarks();

}  // namespace
