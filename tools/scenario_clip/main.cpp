/*
 * scenario_clip: writes a scenario clip (raw NV12, 416x234, 146016 bytes a
 * frame) for the host platform's file source, and the place of every face on
 * every frame as CSV, so a run of the daemon can be checked against where the
 * people really were.
 */
#include <cstdio>
#include <cstdlib>
#include <string>

#include "scenario_clip.h"

namespace {

void usage(FILE *out) {
    fprintf(out,
            "usage: scenario_clip --scenario NAME [--frames N] [--out FILE] [--truth FILE]\n"
            "                     [--shared DIR] [--preview FRAME FILE.png]\n"
            "       scenario_clip --video FILE [--frames N] --out FILE\n"
            "  --scenario NAME  one of:\n");
    for (const scenario::ScenarioInfo &s : scenario::scenarios()) {
        fprintf(out, "                     %-15s %s (%d frames)\n", s.name, s.description, s.defaultFrames);
    }
    fprintf(out,
            "  --frames N       clip length (default: the scenario's own)\n"
            "  --out FILE       the clip, raw NV12\n"
            "  --truth FILE     CSV 'frame,person,x,y,w,h': each visible face, 416x234 pixels,\n"
            "                   after '# size=416x234' and '# frames=N'\n"
            "  --shared DIR     folder holding data/ (default %s)\n"
            "  --preview F PNG  also writes frame F as a picture\n"
            "  --video FILE     the frames of a video file instead, scaled as the platform scales them\n",
            FACEDET_SHARED_DIR);
}

bool parse_int(const char *text, int *value) {
    char *end = nullptr;
    long parsed = strtol(text, &end, 10);
    if (end == text || *end != '\0' || parsed < 0 || parsed > 100000) {
        return false;
    }
    *value = static_cast<int>(parsed);
    return true;
}

}  // namespace

int main(int argc, char **argv) {
    std::string name, out, truth, preview, video;
    std::string shared = FACEDET_SHARED_DIR;
    int frames = 0;
    int previewFrame = -1;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            usage(stdout);
            return 0;
        }
        const int values = arg == "--preview" ? 2 : 1;
        if (arg.rfind("--", 0) != 0 || i + values >= argc) {
            fprintf(stderr, "scenario_clip: %s\n",
                    arg.rfind("--", 0) == 0 ? (arg + " needs a value").c_str()
                                            : ("unexpected argument '" + arg + "'").c_str());
            return 2;
        }
        const char *value = argv[i + 1];
        if (arg == "--scenario") {
            name = value;
        } else if (arg == "--video") {
            video = value;
        } else if (arg == "--out") {
            out = value;
        } else if (arg == "--truth") {
            truth = value;
        } else if (arg == "--shared") {
            shared = value;
        } else if (arg == "--frames") {
            if (!parse_int(value, &frames) || frames < 2) {
                fprintf(stderr, "scenario_clip: --frames wants a whole number of at least 2, not '%s'\n",
                        value);
                return 2;
            }
        } else if (arg == "--preview") {
            if (!parse_int(value, &previewFrame)) {
                fprintf(stderr, "scenario_clip: --preview wants a frame number, not '%s'\n", value);
                return 2;
            }
            preview = argv[i + 2];
        } else {
            fprintf(stderr, "scenario_clip: unknown option '%s'\n", arg.c_str());
            return 2;
        }
        i += values;
    }
    if (name.empty() == video.empty() || (out.empty() && truth.empty() && preview.empty())) {
        usage(stderr);
        return 2;
    }

    scenario::Clip clip;
    std::string error;
    const bool built = video.empty() ? scenario::build_clip(name, frames, shared, &clip, &error)
                                     : scenario::video_clip(video, frames, &clip, &error);
    if (!built || !scenario::write_clip(clip, out, truth, &error) ||
        (!preview.empty() && !scenario::frame_to_png(clip, previewFrame, preview, &error))) {
        fprintf(stderr, "scenario_clip: %s\n", error.c_str());
        return 1;
    }
    printf("scenario_clip: %s, %d frames, %zu face rows\n", video.empty() ? name.c_str() : video.c_str(),
           clip.frames, clip.truth.size());
    return 0;
}
