/*
 * scenario_clip: writes a scenario clip (raw NV12, 416x234, 146016 bytes a
 * frame) for the host platform's file source, and the place of every face on
 * every frame as CSV, so a run of the daemon can be checked against where the
 * people really were.
 */
#include <cstdio>
#include <string>
#include <utility>

#include "scenario_clip.h"
#include "tool_cli.h"

namespace {

// The scenarios, one a line (bench/framing_quality.sh reads the names from --help).
std::string scenario_list() {
    std::string list = "one of:";
    for (const scenario::ScenarioInfo &s : scenario::scenarios()) {
        char line[160];
        snprintf(line, sizeof line, "\n%-15s %s (%d frames)", s.name, s.description, s.defaultFrames);
        list += line;
    }
    return list;
}

}  // namespace

int main(int argc, char **argv) {
    std::string name, out, truth, video;
    std::string shared = FACEDET_SHARED_DIR;
    int frames = 0;
    std::pair<int, std::string> preview{-1, ""};
    CLI::App app{
        "Writes a scenario clip (raw NV12, 416x234) for the host platform's file source,\n"
        "and the place of every face on every frame as CSV.",
        "scenario_clip"};
    tool_cli::set_up(app,
                     "scenario_clip --scenario NAME [--frames N] [--out FILE] [--truth FILE]\n"
                     "              [--shared DIR] [--preview FRAME FILE.png]\n"
                     "scenario_clip --video FILE [--frames N] --out FILE");
    app.add_option("--scenario", name, scenario_list())->type_name("NAME");
    app.add_option("--frames", frames, "clip length (default: the scenario's own)")
        ->type_name("N")
        ->check(tool_cli::whole_number(2, 100000, "a whole number of at least 2"));
    app.add_option("--out", out, "the clip, raw NV12")->type_name("FILE");
    app.add_option("--truth", truth,
                   "CSV 'frame,person,x,y,w,h': each visible face, 416x234 pixels,\n"
                   "after '# size=416x234' and '# frames=N'")
        ->type_name("FILE");
    app.add_option("--shared", shared,
                   std::string("folder holding data/ (default ") + FACEDET_SHARED_DIR + ")")
        ->type_name("DIR");
    app.add_option("--preview", preview, "also writes frame FRAME as a picture")
        ->type_name("FRAME FILE.png")
        ->check(tool_cli::whole_number(0, 100000, "a frame number").application_index(0));
    app.add_option("--video", video, "the frames of a video file instead, scaled as the platform scales them")
        ->type_name("FILE");
    if (const int status = tool_cli::parse(app, argc, argv); status >= 0) {
        return status;
    }
    if (name.empty() == video.empty()) {
        return tool_cli::usage_error(app, "give either --scenario NAME or --video FILE (try --help)");
    }
    if (out.empty() && truth.empty() && preview.second.empty()) {
        return tool_cli::usage_error(app, "nothing to write: give --out, --truth or --preview (try --help)");
    }

    scenario::Clip clip;
    std::string error;
    const bool built = video.empty() ? scenario::build_clip(name, frames, shared, &clip, &error)
                                     : scenario::video_clip(video, frames, &clip, &error);
    if (!built || !scenario::write_clip(clip, out, truth, &error) ||
        (!preview.second.empty() && !scenario::frame_to_png(clip, preview.first, preview.second, &error))) {
        fprintf(stderr, "scenario_clip: %s\n", error.c_str());
        return 1;
    }
    printf("scenario_clip: %s, %d frames, %zu face rows\n", video.empty() ? name.c_str() : video.c_str(),
           clip.frames, clip.truth.size());
    return 0;
}
