/*
 * Colour conversion benchmarks: NV12 to packed three-byte pixels on one core,
 * at the analysis size 416x234 and at 1920x1080.
 *
 *   convert/WxH/<version>  each version built into this binary (reference,
 *                          sse2, avx2, ...; the one nv12_to_bgr uses is
 *                          marked in the table)
 *   convert/WxH/libyuv     libyuv's NV12ToRGB24 (B, G, R in memory, as ours)
 *   convert/WxH/opencv     cv::cvtColor with COLOR_YUV2BGR_NV12, one thread
 *   convert/WxH/copy       memcpy of the 3 * W * H bytes a conversion writes:
 *                          the speed a conversion could at best approach
 *
 * Pixels per nanosecond is the px_per_ns counter (items_per_second is the
 * same per second). Each runs five times; after the runs a table gives the
 * medians and the ratios to libyuv, OpenCV and the copy.
 */
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "faceDet/color_convert.h"

#if FACEDET_BENCH_HAS_LIBYUV
#include <libyuv.h>
#endif
#if FACEDET_BENCH_HAS_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

struct FrameSize {
    int width, height;
};

const FrameSize kSizes[] = {{416, 234}, {1920, 1080}};

// One frame of random NV12 and room for its conversion.
struct Frame {
    int width, height;
    std::vector<uint8_t> nv12, bgr;
    Frame(int w, int h)
        : width(w), height(h), nv12(static_cast<size_t>(w) * h * 3 / 2), bgr(size_t(w) * h * 3) {
        std::mt19937 rng(7);
        for (uint8_t &b : nv12) {
            b = static_cast<uint8_t>(rng());
        }
    }
};

template <typename Convert>
void run(benchmark::State &state, const FrameSize &size, Convert convert) {
    Frame f(size.width, size.height);
    for (auto _ : state) {
        convert(f);
        benchmark::DoNotOptimize(f.bgr.data());
        benchmark::ClobberMemory();
    }
    const double pixels = double(size.width) * size.height;
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * pixels));
    state.counters["px_per_ns"] =
        benchmark::Counter(pixels * 1e-9, benchmark::Counter::kIsIterationInvariantRate);
}

// Five runs of at least 0.2 s each; only their aggregates are printed.
void configure(benchmark::internal::Benchmark *b) {
    b->Repetitions(5)->ReportAggregatesOnly(true)->MinTime(0.2)->Unit(benchmark::kMicrosecond);
}

std::string name_of(const FrameSize &size, const std::string &what) {
    return "convert/" + std::to_string(size.width) + "x" + std::to_string(size.height) + "/" + what;
}

// Console output as usual, and the median px_per_ns of each benchmark kept
// for the ratio table.
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    std::map<std::string, double> medians;

    void ReportRuns(const std::vector<Run> &runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run &r : runs) {
            if (r.run_type == Run::RT_Aggregate && r.aggregate_name == "median") {
                const auto it = r.counters.find("px_per_ns");
                if (it != r.counters.end()) {
                    medians[r.run_name.function_name] = it->second.value;
                }
            }
        }
    }
};

void print_ratio_table(const std::map<std::string, double> &medians, const std::vector<std::string> &names) {
    printf("\nMedians of five runs, one core (active version: %s)\n", nv12_to_bgr_active_name());
    printf("%-10s %-10s %10s %10s %10s %10s\n", "size", "version", "px/ns", "x libyuv", "x opencv", "x copy");
    for (const FrameSize &size : kSizes) {
        const std::string prefix = name_of(size, "");
        auto value = [&](const std::string &what) {
            const auto it = medians.find(prefix + what);
            return it == medians.end() ? 0.0 : it->second;
        };
        const double libyuv = value("libyuv"), opencv = value("opencv"), copy = value("copy");
        for (const std::string &what : names) {
            const double v = value(what);
            if (v == 0.0) {
                continue;
            }
            char ratios[3][16];
            const double bases[3] = {libyuv, opencv, copy};
            for (int i = 0; i < 3; ++i) {
                if (bases[i] > 0.0) {
                    snprintf(ratios[i], sizeof ratios[i], "%.2f", v / bases[i]);
                } else {
                    snprintf(ratios[i], sizeof ratios[i], "-");
                }
            }
            const std::string label = what == nv12_to_bgr_active_name() ? what + "*" : what;
            printf("%-10s %-10s %10.3f %10s %10s %10s\n",
                   (std::to_string(size.width) + "x" + std::to_string(size.height)).c_str(), label.c_str(), v,
                   ratios[0], ratios[1], ratios[2]);
        }
    }
}

}  // namespace

int main(int argc, char **argv) {
#if FACEDET_BENCH_HAS_OPENCV
    cv::setNumThreads(1);  // every contender on one core
#endif
    std::vector<std::string> names;
    size_t count = 0;
    const Nv12ToBgrVariant *versions = nv12_to_bgr_variants(&count);
    for (size_t i = 0; i < count; ++i) {
        if (versions[i].usable) {
            names.push_back(versions[i].name);
        }
    }
#if FACEDET_BENCH_HAS_LIBYUV
    names.push_back("libyuv");
#endif
#if FACEDET_BENCH_HAS_OPENCV
    names.push_back("opencv");
#endif
    names.push_back("copy");

    for (const FrameSize &size : kSizes) {
        for (size_t i = 0; i < count; ++i) {
            if (!versions[i].usable) {
                continue;
            }
            const Nv12ToBgrFn fn = versions[i].convert;
            configure(benchmark::RegisterBenchmark(
                name_of(size, versions[i].name).c_str(), [size, fn](benchmark::State &s) {
                    run(s, size, [fn](Frame &f) { fn(f.nv12.data(), f.bgr.data(), f.width, f.height); });
                }));
        }
#if FACEDET_BENCH_HAS_LIBYUV
        configure(benchmark::RegisterBenchmark(name_of(size, "libyuv").c_str(), [size](benchmark::State &s) {
            run(s, size, [](Frame &f) {
                const uint8_t *uv = f.nv12.data() + size_t(f.width) * f.height;
                libyuv::NV12ToRGB24(f.nv12.data(), f.width, uv, f.width, f.bgr.data(), f.width * 3, f.width,
                                    f.height);
            });
        }));
#endif
#if FACEDET_BENCH_HAS_OPENCV
        configure(benchmark::RegisterBenchmark(name_of(size, "opencv").c_str(), [size](benchmark::State &s) {
            run(s, size, [](Frame &f) {
                const cv::Mat src(f.height * 3 / 2, f.width, CV_8UC1, f.nv12.data());
                cv::Mat dst(f.height, f.width, CV_8UC3, f.bgr.data());
                cv::cvtColor(src, dst, cv::COLOR_YUV2BGR_NV12);
            });
        }));
#endif
        configure(benchmark::RegisterBenchmark(name_of(size, "copy").c_str(), [size](benchmark::State &s) {
            // The source is the size of the destination: the bytes a
            // conversion writes, copied.
            std::vector<uint8_t> src(size_t(size.width) * size.height * 3, 1);
            run(s, size, [&src](Frame &f) { memcpy(f.bgr.data(), src.data(), src.size()); });
        }));
    }

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    print_ratio_table(reporter.medians, names);
    benchmark::Shutdown();
    return 0;
}
