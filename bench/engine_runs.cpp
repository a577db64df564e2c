/*
 * engine_runs: the face network on one 416x234 frame, N times, with exactly
 * the thread count given (the detector itself never grants more than the
 * cores less one, see granted_threads()). A plain program without a benchmark
 * library, so that it runs on the camera's CPU under qemu, where
 * bench/camera_cost.sh counts its instructions: two values of N in two
 * processes, so that loading the model and the first sizing cancel out.
 *
 *     engine_runs --threads T --runs N [--frame CLIP.nv12] [--model FILE.mnn]
 *
 * The frame is the first of a raw NV12 clip, its luma copied into all three
 * channels (the instruction count depends on the arithmetic, not on colour);
 * without --frame a flat grey frame.
 */
#include <dirent.h>

#include <cstdio>
#include <string>
#include <vector>

#include "detector/inference_engine.h"
#include "tool_cli.h"

namespace {

constexpr int kWidth = 416;
constexpr int kHeight = 234;

// Entries of /proc/self/task: under qemu-user, qemu's own threads as well as
// the guest's, one host thread per guest thread.
int task_count() {
    DIR *dir = opendir("/proc/self/task");
    if (dir == nullptr) {
        return -1;
    }
    int n = 0;
    while (const dirent *entry = readdir(dir)) {
        n += entry->d_name[0] != '.';
    }
    closedir(dir);
    return n;
}

bool read_frame(const std::string &path, std::vector<uint8_t> *bgr) {
    std::vector<uint8_t> luma(static_cast<size_t>(kWidth) * kHeight);
    FILE *f = fopen(path.c_str(), "rb");
    if (f == nullptr) {
        return false;
    }
    const bool whole = fread(luma.data(), 1, luma.size(), f) == luma.size();
    fclose(f);
    for (size_t i = 0; whole && i < luma.size(); ++i) {
        (*bgr)[3 * i] = (*bgr)[3 * i + 1] = (*bgr)[3 * i + 2] = luma[i];
    }
    return whole;
}

}  // namespace

int main(int argc, char **argv) {
    int threads = 0;
    int runs = -1;
    std::string frameFile;
    std::string model = std::string(FACEDET_SHARED_DIR) + "/models/slim-320-quant-ADMM-50.mnn";
    CLI::App app{"The face network on one 416x234 frame, N times, with exactly T threads.", "engine_runs"};
    tool_cli::set_up(app, "engine_runs --threads T --runs N [--frame CLIP.nv12] [--model FILE.mnn]");
    app.add_option("--threads", threads, "worker threads given to the engine as they are (1..16)")
        ->type_name("T")
        ->check(tool_cli::whole_number(1, 16, "a count from 1 to 16"));
    app.add_option("--runs", runs, "frames run after one warm-up run (0..100000)")
        ->type_name("N")
        ->check(tool_cli::whole_number(0, 100000, "a count from 0 to 100000"));
    app.add_option("--frame", frameFile,
                   "take the first frame of this raw NV12 416x234 clip (default: flat grey)")
        ->type_name("F");
    app.add_option("--model", model, "the quantised network (default " + model + ")")->type_name("M");
    if (const int status = tool_cli::parse(app, argc, argv); status >= 0) {
        return status;
    }
    if (threads == 0 || runs < 0) {
        return tool_cli::usage_error(app, "say --threads T and --runs N (try --help)");
    }

    std::vector<uint8_t> frame(static_cast<size_t>(kWidth) * kHeight * 3, 128);
    if (!frameFile.empty() && !read_frame(frameFile, &frame)) {
        fprintf(stderr, "engine_runs: cannot read a 416x234 frame from %s\n", frameFile.c_str());
        return 1;
    }
    const int tasksBefore = task_count();
    const EngineInputFormat format = {{127, 127, 127}, {1.0f / 128, 1.0f / 128, 1.0f / 128}};
    std::unique_ptr<InferenceEngine> engine =
        create_inference_engine(EngineKind::kMnn, model, threads, format);
    if (engine == nullptr || !engine->ready()) {
        fprintf(stderr, "engine_runs: no mnn engine on %s\n", model.c_str());
        return 1;
    }
    EngineOutputs outputs;
    // The first run sizes the network for the frame, as the daemon's first frame does.
    for (int i = 0; i <= runs; ++i) {
        engine->prepare(frame.data(), kWidth, kHeight);
        engine->run(&outputs);
    }
    float best = 0;
    for (size_t p = 1; p < outputs.scoreCount; p += 2) {
        best = outputs.scores[p] > best ? outputs.scores[p] : best;
    }
    // The best face score shows the network really ran on the frame.
    printf(
        "engine %s, threads %d, runs %d, tasks %d before the engine and %d with it, best face score %.3f\n",
        engine->name(), engine->threads(), runs, tasksBefore, task_count(), best);
    return 0;
}
