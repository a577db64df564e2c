/*
 * Scenario clips: raw NV12 clips of the analysis stream (416x234) in which
 * real people, cut head and shoulders out of annotated photos, move over a
 * real, face-free background along scripted paths, together with the exact
 * place of every face on every frame.
 *
 * The daemon's tests play them through the host platform's raw file source
 * and compare what the camera was told with where the faces really were.
 * Everything is computed from the shared test material alone, so the same
 * name and frame count always give the same bytes.
 */
#ifndef FACEDET_SCENARIO_CLIP_H
#define FACEDET_SCENARIO_CLIP_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace scenario {

constexpr int kClipWidth = 416;
constexpr int kClipHeight = 234;
constexpr size_t kClipFrameBytes = static_cast<size_t>(kClipWidth) * kClipHeight * 3 / 2;

// Where one face is on one frame, in pixels of the 416x234 frame: the
// annotated (forehead to chin) box, cut to the frame. A face appears only on
// frames where at least half of it can be seen, in the frame and not hidden
// by someone in front.
struct FaceTruth {
    int frame;
    int person;  // 0 is the first person of the scenario's cast
    int x, y, w, h;
};

struct Clip {
    int frames = 0;
    std::vector<uint8_t> nv12;     // frames * kClipFrameBytes, NV12 with U before V as the platform writes it
    std::vector<FaceTruth> truth;  // by frame, then by person
};

struct ScenarioInfo {
    const char *name;
    int defaultFrames;
    const char *description;
};

// Every scenario, in the order the tool's usage lists them.
const std::vector<ScenarioInfo> &scenarios();

// Builds the clip of scenario `name` with `frames` frames (0: its default)
// from the photos and videos under sharedDir/data. False, with the reason in
// *error, for an unknown name, a frame count below 2 or missing material.
bool build_clip(const std::string &name, int frames, const std::string &sharedDir, Clip *clip,
                std::string *error);

// A video file as the analysis stream sees it: each frame scaled to 416x234
// as the host platform scales it, at most maxFrames of them (0: all). No
// truth. For measurements on real footage at the raw source's 30 fps.
bool video_clip(const std::string &videoPath, int maxFrames, Clip *clip, std::string *error);

// The clip as a raw file and its truth as CSV lines "frame,person,x,y,w,h"
// after the directives "# size=416x234" and "# frames=N" and a header line;
// either path may be empty to skip it.
bool write_clip(const Clip &clip, const std::string &clipPath, const std::string &truthPath,
                std::string *error);

// Truth rows of one frame (pointer into clip.truth, count in *count).
const FaceTruth *faces_on_frame(const Clip &clip, int frame, size_t *count);

// Frame `frame` as packed 8-bit BGR (416x234x3 bytes), through OpenCV's
// standard conversion; for checks with the detector and for previews.
bool frame_bgr(const Clip &clip, int frame, std::vector<uint8_t> *bgr);

// Frame `frame` as a PNG picture, to look at a scenario.
bool frame_to_png(const Clip &clip, int frame, const std::string &pngPath, std::string *error);

}  // namespace scenario

#endif
