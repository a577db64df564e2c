/*
 * The daemon's per-frame path, stage by stage, on one real frame of a sample
 * video (416x234, a man facing the camera), single-threaded apart from the
 * detector's own workers:
 *
 *   stage/copy_convert       the two NV12 planes copied out of the platform's
 *                            buffer, then nv12_to_bgr
 *   stage/histogram          build_luma_histogram
 *   stage/gamma/idle         auto_gamma_step when the peer asks for nothing
 *                            (its record read from memory)
 *   stage/gamma/answer       auto_gamma_step answering a request (statistics,
 *                            curve, verdict), the record read and written in
 *                            memory instead of the shared segment
 *   stage/detect             FaceDet_Detect (the network and its decoding)
 *   stage/select_decide      filter_face_boxes, select_target and
 *                            move_decision_step on the frame's faces, their
 *                            trace lines written to /dev/null
 *   frame/without_inference  all of the above but detect, with gamma idle
 *   frame/total              the whole analysed frame
 *
 * The allocs counter is operator new calls per frame. The frame budget of the
 * 30 fps stream is 33.3 ms. Run it from the build directory: the detector
 * loads its model from the working directory before main, as the daemon does.
 */
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include "detector/face_det_api.h"
#include "faceDet/frame_state.h"
#include "faceDet/box_filter.h"
#include "faceDet/color_convert.h"
#include "faceDet/luma_histogram.h"
#include "faceDet/move_decision.h"
#include "faceDet/target_selection.h"

// Every operator new of the process is counted, so that a stage that
// allocates shows it in its allocs counter. GCC sees the replaced operators'
// malloc and free inlined into callers and takes them for a mismatched pair.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
namespace {
std::atomic<long> g_allocations{0};
}  // namespace

void *operator new(size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void *p = malloc(size == 0 ? 1 : size)) {
        return p;
    }
    throw std::bad_alloc();
}
void *operator new[](size_t size) {
    return operator new(size);
}
void operator delete(void *p) noexcept {
    free(p);
}
void operator delete[](void *p) noexcept {
    free(p);
}
void operator delete(void *p, size_t) noexcept {
    free(p);
}
void operator delete[](void *p, size_t) noexcept {
    free(p);
}

namespace {

constexpr int kWidth = 416;
constexpr int kHeight = 234;
constexpr size_t kLuma = static_cast<size_t>(kWidth) * kHeight;
constexpr size_t kChroma = kLuma / 2;
const std::string kVideo = std::string(FACEDET_SHARED_DIR) + "/data/videos/talking_head_single_person.mp4";
constexpr int kVideoFrame = 30;

// The stages' trace lines go where the daemon's would, minus the terminal:
// line-buffered stdout on /dev/null.
class QuietStdout {
  public:
    QuietStdout() {
        fflush(stdout);
        saved_ = dup(STDOUT_FILENO);
        int null = open("/dev/null", O_WRONLY);
        dup2(null, STDOUT_FILENO);
        close(null);
        setvbuf(stdout, nullptr, _IOLBF, 0);
    }
    ~QuietStdout() {
        fflush(stdout);
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
    }

  private:
    int saved_;
};

// The platform's buffer (two planes, as the port hands them out) and the
// frame loop's own copies.
struct Pipeline {
    std::vector<uint8_t> platformLuma = std::vector<uint8_t>(kLuma);
    std::vector<uint8_t> platformChroma = std::vector<uint8_t>(kChroma);
    std::vector<uint8_t> nv12 = std::vector<uint8_t>(kLuma + kChroma);
    std::vector<uint8_t> bgr = std::vector<uint8_t>(kLuma * 3);
    float hist[256] = {};
    float frameHist[256] = {};
    GammaRecord record = {};
    std::vector<FaceResult> faces;
    std::vector<Rect_t> frameBoxes, outputBoxes, workingBoxes;
    bool ready = false;
    std::string error;

    Pipeline() {
        frameBoxes.reserve(kMaxDetections);
        outputBoxes.reserve(kMaxDetections);
        workingBoxes.reserve(kMaxDetections);
        cv::VideoCapture video(kVideo);
        cv::Mat frame;
        for (int i = 0; i <= kVideoFrame && video.read(frame); ++i) {
        }
        if (frame.empty()) {
            error = "cannot read " + kVideo;
            return;
        }
        // As the host platform makes NV12 of a video: area scaling, I420, U before V.
        cv::Mat scaled, i420;
        cv::resize(frame, scaled, cv::Size(kWidth, kHeight), 0, 0, cv::INTER_AREA);
        cv::cvtColor(scaled, i420, cv::COLOR_BGR2YUV_I420);
        const uint8_t *yuv = i420.ptr<uint8_t>(0);
        memcpy(platformLuma.data(), yuv, kLuma);
        for (size_t i = 0; i < kLuma / 4; ++i) {
            platformChroma[2 * i] = yuv[kLuma + i];
            platformChroma[2 * i + 1] = yuv[kLuma + kLuma / 4 + i];
        }
        copy_convert();
        histogram();
        memcpy(frameHist, hist, sizeof hist);
        if (!g_faceDetector.ready()) {
            error = "the detector has no model: run from the build directory";
            return;
        }
        QuietStdout quiet;
        faces = FaceDet_Detect(bgr.data(), kWidth, kHeight);
        ready = true;
    }

    void copy_convert() {
        memcpy(nv12.data(), platformLuma.data(), kLuma);
        memcpy(nv12.data() + kLuma, platformChroma.data(), kChroma);
        nv12_to_bgr(nv12.data(), bgr.data(), kWidth, kHeight);
    }

    void histogram() { build_luma_histogram(nv12.data(), kWidth, kHeight, hist); }

    void gamma(bool request) {
        record.mode = request ? 1 : 0;
        record.strength = 50;
        record.isuse = 0;
        auto_gamma_step(daemon_gamma_state(), threadCopy, hist, memoryIo);
    }

    void select_decide() {
        filter_face_boxes(faces, frameBoxes, outputBoxes, face_score);
        workingBoxes = outputBoxes;
        select_target(g_targetSelection, workingBoxes, face_score);
        benchmark::DoNotOptimize(move_decision_step(g_framing, g_targetSelection));
    }

    GammaRecord threadCopy = {};
    static Pipeline *current;
    static int read_record(void *to) {
        memcpy(to, &current->record, sizeof(GammaRecord));
        return 1;
    }
    static int write_record(const void *from) {
        memcpy(&current->record, from, sizeof(GammaRecord));
        return 1;
    }
    const GammaIo memoryIo = {read_record, write_record};
};
Pipeline *Pipeline::current = nullptr;

Pipeline &pipeline() {
    static Pipeline p;
    Pipeline::current = &p;
    return p;
}

template <typename Body>
void run_stage(benchmark::State &state, Body body) {
    Pipeline &p = pipeline();
    if (!p.ready) {
        state.SkipWithError(p.error.c_str());
        return;
    }
    long allocations = 0;
    {
        QuietStdout quiet;
        // A first pass outside the timing: the conversion picks its version
        // and the decision settles on the frame's person.
        body(p);
        for (auto _ : state) {
            const long before = g_allocations.load(std::memory_order_relaxed);
            body(p);
            allocations += g_allocations.load(std::memory_order_relaxed) - before;
            benchmark::ClobberMemory();
        }
    }
    state.counters["allocs"] =
        benchmark::Counter(static_cast<double>(allocations), benchmark::Counter::kAvgIterations);
}

void bm_copy_convert(benchmark::State &state) {
    run_stage(state, [](Pipeline &p) { p.copy_convert(); });
}
void bm_histogram(benchmark::State &state) {
    run_stage(state, [](Pipeline &p) { p.histogram(); });
}
void bm_gamma_idle(benchmark::State &state) {
    run_stage(state, [](Pipeline &p) { p.gamma(false); });
}
void bm_gamma_answer(benchmark::State &state) {
    run_stage(state, [](Pipeline &p) {
        // Answering normalises the histogram in place: each frame starts from
        // the frame's counts again (a 1 kB copy).
        memcpy(p.hist, p.frameHist, sizeof p.hist);
        p.gamma(true);
    });
}
void bm_detect(benchmark::State &state) {
    run_stage(state, [](Pipeline &p) { p.faces = FaceDet_Detect(p.bgr.data(), kWidth, kHeight); });
    state.counters["faces"] = static_cast<double>(pipeline().faces.size());
}
void bm_select_decide(benchmark::State &state) {
    run_stage(state, [](Pipeline &p) { p.select_decide(); });
}
void bm_frame_without_inference(benchmark::State &state) {
    run_stage(state, [](Pipeline &p) {
        p.copy_convert();
        p.histogram();
        p.gamma(false);
        p.select_decide();
    });
}
void bm_frame_total(benchmark::State &state) {
    run_stage(state, [](Pipeline &p) {
        p.copy_convert();
        p.histogram();
        p.gamma(false);
        p.faces = FaceDet_Detect(p.bgr.data(), kWidth, kHeight);
        p.select_decide();
    });
}

}  // namespace

BENCHMARK(bm_copy_convert)->Name("stage/copy_convert")->Unit(benchmark::kMicrosecond);
BENCHMARK(bm_histogram)->Name("stage/histogram")->Unit(benchmark::kMicrosecond);
BENCHMARK(bm_gamma_idle)->Name("stage/gamma/idle")->Unit(benchmark::kMicrosecond);
BENCHMARK(bm_gamma_answer)->Name("stage/gamma/answer")->Unit(benchmark::kMicrosecond);
BENCHMARK(bm_detect)->Name("stage/detect")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(bm_select_decide)->Name("stage/select_decide")->Unit(benchmark::kMicrosecond);
BENCHMARK(bm_frame_without_inference)->Name("frame/without_inference")->Unit(benchmark::kMicrosecond);
BENCHMARK(bm_frame_total)->Name("frame/total")->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK_MAIN();
