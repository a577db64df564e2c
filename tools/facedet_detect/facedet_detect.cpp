/*
 * facedet_detect: runs the face detector on image files the way the camera
 * sees them (each image scaled to the 416x234 analysis frame, packed BGR) and
 * prints the faces found in the original image's pixels:
 *
 *   <image> <x> <y> <w> <h> <score>
 *
 * With --annotations it also matches the detections to annotated faces and
 * prints precision and recall overall and by face size in the analysis frame.
 * The detector's own timing lines are dropped unless --log is given.
 */
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "detector/slim_face_detector.h"
#include "annotations.h"
#include "face_matching.h"
#include "tool_cli.h"

namespace {

constexpr int kFrameWidth = 416;
constexpr int kFrameHeight = 234;

struct Options {
    std::string model = "./slim-320-quant-ADMM-50.mnn";
    int threads = 4;
    std::string engine;  // empty: $FACEDET_ENGINE, else the camera's
    std::string annotations;
    std::string attributes;
    std::string imagesDir;
    bool log = false;
    std::vector<std::string> images;
};

// -1 to go on, else the exit status.
int parse_options(int argc, char **argv, Options &opt) {
    CLI::App app{"Prints '<image> <x> <y> <w> <h> <score>' per face, in the image's own pixels.",
                 "facedet_detect"};
    tool_cli::set_up(app,
                     "facedet_detect [--engine mnn|opencv] [--model FILE.mnn] [--threads N] [--log]\n"
                     "               [--annotations FILE [--attributes FILE] [--images DIR]] [IMAGE...]");
    app.add_option("IMAGE", opt.images, "image files to run the detector on")->type_name("");
    app.add_option("--engine", opt.engine,
                   "the inference engine (default: $FACEDET_ENGINE, else mnn, the camera's)")
        ->type_name("E");
    app.add_option("--model", opt.model,
                   "the detector's model path (default ./slim-320-quant-ADMM-50.mnn;\n"
                   "the OpenCV engine reads slim-320.onnx from the same directory)")
        ->type_name("FILE");
    app.add_option("--threads", opt.threads, "threads the detector asks for (default 4)")
        ->type_name("N")
        ->check(tool_cli::whole_number(1, INT32_MAX, "a positive number"));
    app.add_option("--annotations", opt.annotations,
                   "lines 'image x y w h'; scores the detections (IoU >= 0.5). Without\n"
                   "IMAGE arguments every annotated image is run, read from --images DIR\n"
                   "(default: the folder 'images' beside the annotations file)")
        ->type_name("FILE");
    app.add_option("--attributes", opt.attributes,
                   "lines 'image x y w h blur expression illumination invalid occlusion pose';\n"
                   "faces marked invalid are not counted either way")
        ->type_name("FILE");
    app.add_option("--images", opt.imagesDir, "where the annotated images are")->type_name("DIR");
    app.add_flag("--log", opt.log, "keep the detector's own output lines");
    if (const int status = tool_cli::parse(app, argc, argv); status >= 0) {
        return status;
    }
    if (opt.images.empty() && opt.annotations.empty()) {
        return tool_cli::usage_error(app, "give images or --annotations (try --help)");
    }
    return -1;
}

// Opens path and hands it to a reader of annotations.h; a line on failure.
template <typename Reader>
bool read_file(const std::string &path, Reader reader) {
    std::ifstream in(path);
    if (!in) {
        fprintf(stderr, "facedet_detect: cannot read %s: %s\n", path.c_str(), strerror(errno));
        return false;
    }
    std::string error;
    if (!reader(in, error)) {
        fprintf(stderr, "facedet_detect: %s\n", error.c_str());
        return false;
    }
    return true;
}

void print_table(FILE *out, const MatchCounts &counts) {
    fprintf(
        out,
        "| face size (smaller side at %dx%d) | faces | found | recall | detections | correct | precision |\n",
        kFrameWidth, kFrameHeight);
    fprintf(out, "|---|---:|---:|---:|---:|---:|---:|\n");
    size_t totals[4] = {0, 0, 0, 0};
    auto ratio = [](size_t a, size_t b) {
        char text[16] = "-";
        if (b > 0) {
            snprintf(text, sizeof text, "%.1f %%", 100.0 * double(a) / double(b));
        }
        return std::string(text);
    };
    for (int c = 0; c < kSizeClasses; ++c) {
        fprintf(out, "| %s | %zu | %zu | %s | %zu | %zu | %s |\n", size_class_name(c), counts.faces[c],
                counts.found[c], ratio(counts.found[c], counts.faces[c]).c_str(), counts.detections[c],
                counts.correct[c], ratio(counts.correct[c], counts.detections[c]).c_str());
        totals[0] += counts.faces[c];
        totals[1] += counts.found[c];
        totals[2] += counts.detections[c];
        totals[3] += counts.correct[c];
    }
    fprintf(out, "| all | %zu | %zu | %s | %zu | %zu | %s |\n", totals[0], totals[1],
            ratio(totals[1], totals[0]).c_str(), totals[2], totals[3], ratio(totals[3], totals[2]).c_str());
}

}  // namespace

int main(int argc, char **argv) {
    Options opt;
    if (const int status = parse_options(argc, argv, opt); status >= 0) {
        return status;
    }

    // Our own output goes to the original stdout; the detector's per-frame
    // lines go to the same place only with --log.
    FILE *out = stdout;
    if (!opt.log) {
        fflush(stdout);
        const int saved = dup(STDOUT_FILENO);
        out = saved >= 0 ? fdopen(saved, "w") : nullptr;
        if (out == nullptr || freopen("/dev/null", "w", stdout) == nullptr) {
            fprintf(stderr, "facedet_detect: cannot separate the detector's output\n");
            return 1;
        }
    }

    AnnotatedFaces annotated;
    std::vector<std::string> annotatedOrder;
    const bool evaluate = !opt.annotations.empty();
    if (evaluate) {
        auto readFaces = [&](std::istream &in, std::string &error) {
            return read_annotations(in, opt.annotations, annotated, annotatedOrder, &error);
        };
        auto readAttributes = [&](std::istream &in, std::string &error) {
            return apply_attributes(in, opt.attributes, annotated, &error);
        };
        if (!read_file(opt.annotations, readFaces) ||
            (!opt.attributes.empty() && !read_file(opt.attributes, readAttributes))) {
            return 1;
        }
        if (opt.images.empty()) {
            const std::filesystem::path dir =
                opt.imagesDir.empty() ? std::filesystem::path(opt.annotations).parent_path() / "images"
                                      : std::filesystem::path(opt.imagesDir);
            for (const std::string &name : annotatedOrder) {
                opt.images.push_back((dir / name).string());
            }
        }
    }

    SlimFaceDetector detector(opt.model, kFrameWidth, kFrameHeight, opt.threads, -1, 0.65f, 0.3f, opt.engine);
    if (!detector.ready()) {
        return 1;
    }
    const std::string engineLine = std::string(detector.engineName()) + " engine, " + detector.modelFile();

    MatchCounts counts;
    cv::Mat frame;
    std::vector<FaceBox> faces;
    int failures = 0;
    for (const std::string &path : opt.images) {
        const cv::Mat image = cv::imread(path, cv::IMREAD_COLOR);
        if (image.empty()) {
            fprintf(stderr, "facedet_detect: cannot read image %s\n", path.c_str());
            ++failures;
            continue;
        }
        cv::resize(image, frame, cv::Size(kFrameWidth, kFrameHeight));
        faces.clear();
        detector.detect(frame.ptr<uint8_t>(), kFrameWidth, kFrameHeight, faces);

        const double sx = double(image.cols) / kFrameWidth;
        const double sy = double(image.rows) / kFrameHeight;
        std::vector<EvalBox> detections;
        for (const FaceBox &face : faces) {
            // Integer corners as the frame loop receives them, truncated.
            const int x1 = static_cast<int>(face.x1);
            const int y1 = static_cast<int>(face.y1);
            const int x2 = static_cast<int>(face.x2);
            const int y2 = static_cast<int>(face.y2);
            detections.push_back({double(x1), double(y1), double(x2 - x1), double(y2 - y1)});
            fprintf(out, "%s %d %d %d %d %.3f\n", path.c_str(), int(x1 * sx), int(y1 * sy),
                    int((x2 - x1) * sx), int((y2 - y1) * sy), face.score);
        }

        if (evaluate) {
            auto it = annotated.find(std::filesystem::path(path).filename().string());
            std::vector<EvalBox> truth;
            std::vector<bool> invalid;
            if (it != annotated.end()) {
                for (const AnnotatedFace &face : it->second) {
                    truth.push_back({face.box.x / sx, face.box.y / sy, face.box.w / sx, face.box.h / sy});
                    invalid.push_back(face.invalid);
                }
            }
            match_faces(detections, truth, invalid, counts);
        }
    }

    if (evaluate) {
        const size_t runs = opt.images.size() - failures;
        fprintf(out, "\n%s: %zu images, %s\n\n", engineLine.c_str(), runs,
                opt.attributes.empty() ? "all annotated faces counted" : "faces marked invalid not counted");
        print_table(out, counts);
    }
    fflush(out);
    return failures == 0 ? 0 : 1;
}
