#include "scenario_clip.h"
#include "scenario_scripts.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <cerrno>
#include <sstream>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

namespace scenario {

namespace {

// The background: a room seen from high up, blurred until its seated people
// no longer read as faces, so every face the detector finds is one we put
// there.
constexpr char kBackgroundVideo[] = "data/videos/meeting_room_four_seated.mp4";
constexpr double kBackgroundBlurSigma = 2.5;

// Head and shoulders around an annotated face, in face sizes: the box is
// tight from forehead to chin, so hair and neck need room above and below.
constexpr double kCropSide = 0.9;
constexpr double kCropAbove = 0.55;
constexpr double kCropBelow = 1.0;
// Edges blend into the background over this share of the crop's width, so
// the cut-out's border is not a hard line the detector could take for a face
// edge; the face itself stays fully opaque.
constexpr double kFeatherShare = 0.12;

// Walkers bob a little, as people do; integer paths would look like sliding cards.
constexpr double kBobPixels = 1.5;
constexpr double kStepFrames = 10.0;

// Position of an actor's face centre on frame `frame` of `frames`.
cv::Point2d position(const Actor &actor, int frame, int frames) {
    const double at = frames > 1 ? static_cast<double>(frame) / (frames - 1) : 0.0;
    const std::vector<Key> &path = actor.path;
    if (at <= path.front().at) {
        return {path.front().cx, path.front().cy};
    }
    for (size_t i = 1; i < path.size(); ++i) {
        const Key &a = path[i - 1];
        const Key &b = path[i];
        if (at <= b.at) {
            const double u = (at - a.at) / (b.at - a.at);
            double cy = a.cy + (b.cy - a.cy) * u;
            if (a.cx != b.cx || a.cy != b.cy) {
                cy += kBobPixels * std::sin(2.0 * M_PI * frame / kStepFrames);
            }
            return {a.cx + (b.cx - a.cx) * u, cy};
        }
    }
    return {path.back().cx, path.back().cy};
}

// One person's cut-out, scaled once for the whole clip.
struct CutOut {
    cv::Mat bgr;      // CV_8UC3
    cv::Mat away;     // bgr with the back of the head where the face was
    cv::Mat alpha;    // CV_32F, 0..1
    cv::Rect2d face;  // the annotated face inside bgr, in its pixels
};

bool read_face_box(const std::string &annotations, const std::string &image, cv::Rect *box,
                   std::string *error) {
    std::ifstream in(annotations);
    if (!in) {
        *error = "cannot read " + annotations;
        return false;
    }
    int found = 0;
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        std::string name;
        cv::Rect r;
        if (fields >> name >> r.x >> r.y >> r.width >> r.height && name == image) {
            *box = r;
            ++found;
        }
    }
    if (found != 1) {
        *error = image + ": expected exactly one annotated face in " + annotations + ", found " +
                 std::to_string(found);
        return false;
    }
    return true;
}

bool make_cut_out(const std::string &sharedDir, const Actor &actor, CutOut *out, std::string *error) {
    const std::string faces = sharedDir + "/data/faces/";
    cv::Rect face;
    if (!read_face_box(faces + "faces.txt", actor.image, &face, error)) {
        return false;
    }
    const cv::Mat photo = cv::imread(faces + "images/" + actor.image, cv::IMREAD_COLOR);
    if (photo.empty()) {
        *error = "cannot read " + faces + "images/" + actor.image;
        return false;
    }
    const int left = std::max(0, static_cast<int>(face.x - kCropSide * face.width));
    const int right = std::min(photo.cols, static_cast<int>(face.x + face.width * (1 + kCropSide)));
    const int top = std::max(0, static_cast<int>(face.y - kCropAbove * face.height));
    const int bottom = std::min(photo.rows, static_cast<int>(face.y + face.height * (1 + kCropBelow)));
    const double scale = static_cast<double>(actor.faceWidth) / face.width;
    const cv::Size size(static_cast<int>(std::lround((right - left) * scale)),
                        static_cast<int>(std::lround((bottom - top) * scale)));
    cv::resize(photo(cv::Rect(left, top, right - left, bottom - top)), out->bgr, size, 0, 0, cv::INTER_AREA);
    out->face =
        cv::Rect2d((face.x - left) * scale, (face.y - top) * scale, face.width * scale, face.height * scale);

    // Back of the head: the face covered by a darker shade of what is above
    // the forehead (hair or hat), with soft edges so it reads as a head.
    const cv::Rect face2 = cv::Rect(out->face) & cv::Rect(0, 0, size.width, size.height);
    const int hairRows = std::max(1, face2.y);
    const cv::Scalar hair = cv::mean(out->bgr(cv::Rect(face2.x, 0, face2.width, hairRows))) * 0.55;
    out->bgr.copyTo(out->away);
    cv::ellipse(out->away, cv::Point(face2.x + face2.width / 2, face2.y + face2.height / 2),
                cv::Size(face2.width * 3 / 5, face2.height * 3 / 5), 0, 0, 360, hair, cv::FILLED);
    cv::GaussianBlur(out->away, out->away, cv::Size(0, 0), std::max(1.0, face2.width / 12.0));
    out->alpha.create(size, CV_32F);
    const double feather = std::max(1.0, kFeatherShare * size.width);
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            const double edge = std::min({x + 0.5, size.width - x - 0.5, y + 0.5, size.height - y - 0.5});
            out->alpha.at<float>(y, x) = static_cast<float>(std::min(1.0, edge / feather));
        }
    }
    return true;
}

bool make_background(const std::string &sharedDir, cv::Mat *background, std::string *error) {
    const std::string path = sharedDir + "/" + kBackgroundVideo;
    cv::VideoCapture video(path);
    cv::Mat frame;
    if (!video.isOpened() || !video.read(frame) || frame.empty()) {
        *error = "cannot read a frame of " + path;
        return false;
    }
    cv::Mat scaled;
    cv::resize(frame, scaled, cv::Size(kClipWidth, kClipHeight), 0, 0, cv::INTER_AREA);
    cv::GaussianBlur(scaled, *background, cv::Size(0, 0), kBackgroundBlurSigma);
    return true;
}

// Where a cut-out lands on the frame: whole pixels, so that the truth box is
// exactly where the face's pixels are.
cv::Point origin(const CutOut &cut, const cv::Point2d &faceCentre) {
    return {static_cast<int>(std::lround(faceCentre.x - cut.face.x - cut.face.width / 2)),
            static_cast<int>(std::lround(faceCentre.y - cut.face.y - cut.face.height / 2))};
}

cv::Rect face_in_frame(const CutOut &cut, const cv::Point &at) {
    return {at.x + static_cast<int>(std::lround(cut.face.x)),
            at.y + static_cast<int>(std::lround(cut.face.y)), static_cast<int>(std::lround(cut.face.width)),
            static_cast<int>(std::lround(cut.face.height))};
}

bool looks_away(const Actor &actor, int frame, int frames) {
    const double at = frames > 1 ? static_cast<double>(frame) / (frames - 1) : 0.0;
    return at >= actor.awayFrom && at < actor.awayTo;
}

void paste(const CutOut &cut, bool away, const cv::Point &at, cv::Mat *frame) {
    const cv::Rect inFrame = cv::Rect(at, cut.bgr.size()) & cv::Rect(0, 0, frame->cols, frame->rows);
    const cv::Mat &picture = away ? cut.away : cut.bgr;
    for (int y = inFrame.y; y < inFrame.y + inFrame.height; ++y) {
        const cv::Vec3b *src = picture.ptr<cv::Vec3b>(y - at.y);
        const float *alpha = cut.alpha.ptr<float>(y - at.y);
        cv::Vec3b *dst = frame->ptr<cv::Vec3b>(y);
        for (int x = inFrame.x; x < inFrame.x + inFrame.width; ++x) {
            const float a = alpha[x - at.x];
            for (int c = 0; c < 3; ++c) {
                dst[x][c] = cv::saturate_cast<uint8_t>(a * src[x - at.x][c] + (1.0f - a) * dst[x][c]);
            }
        }
    }
}

// The host platform's own conversion: I420 from OpenCV, chroma interleaved U first.
void to_nv12(const cv::Mat &bgr, uint8_t *dst) {
    cv::Mat i420;
    cv::cvtColor(bgr, i420, cv::COLOR_BGR2YUV_I420);
    const size_t luma = static_cast<size_t>(kClipWidth) * kClipHeight;
    const size_t quarter = luma / 4;
    const uint8_t *yuv = i420.ptr<uint8_t>(0);
    memcpy(dst, yuv, luma);
    for (size_t i = 0; i < quarter; ++i) {
        dst[luma + 2 * i] = yuv[luma + i];
        dst[luma + 2 * i + 1] = yuv[luma + quarter + i];
    }
}

bool build(const Scenario &s, int frames, const std::string &sharedDir, Clip *clip, std::string *error) {
    cv::Mat background;
    if (!make_background(sharedDir, &background, error)) {
        return false;
    }
    std::vector<CutOut> cuts(s.cast.size());
    for (size_t i = 0; i < s.cast.size(); ++i) {
        if (!make_cut_out(sharedDir, s.cast[i], &cuts[i], error)) {
            return false;
        }
    }
    clip->frames = frames;
    clip->nv12.assign(static_cast<size_t>(frames) * kClipFrameBytes, 0);
    clip->truth.clear();
    const cv::Rect frameRect(0, 0, kClipWidth, kClipHeight);
    cv::Mat frame;
    std::vector<cv::Point> at(s.cast.size());
    for (int f = 0; f < frames; ++f) {
        background.copyTo(frame);
        for (size_t i = 0; i < s.cast.size(); ++i) {
            at[i] = origin(cuts[i], position(s.cast[i], f, frames));
        }
        for (size_t i = s.cast.size(); i-- > 0;) {
            paste(cuts[i], looks_away(s.cast[i], f, frames), at[i], &frame);
        }
        to_nv12(frame, clip->nv12.data() + static_cast<size_t>(f) * kClipFrameBytes);

        for (size_t i = 0; i < s.cast.size(); ++i) {
            const cv::Rect face = face_in_frame(cuts[i], at[i]);
            const cv::Rect visible = face & frameRect;
            // Hidden by the opaque part of anyone nearer (inside the feathered rim).
            int hidden = 0;
            for (size_t j = 0; j < i; ++j) {
                const int rim = static_cast<int>(kFeatherShare * cuts[j].bgr.cols);
                const cv::Rect opaque(at[j].x + rim, at[j].y + rim, cuts[j].bgr.cols - 2 * rim,
                                      cuts[j].bgr.rows - 2 * rim);
                hidden = std::max(hidden, (visible & opaque).area());
            }
            if (2 * (visible.area() - hidden) >= face.area() && !looks_away(s.cast[i], f, frames)) {
                clip->truth.push_back(
                    {f, static_cast<int>(i), visible.x, visible.y, visible.width, visible.height});
            }
        }
    }
    return true;
}

}  // namespace

const std::vector<ScenarioInfo> &scenarios() {
    static const std::vector<ScenarioInfo> infos = [] {
        std::vector<ScenarioInfo> v;
        for (const Scenario &s : all_scenarios()) {
            v.push_back(s.info);
        }
        return v;
    }();
    return infos;
}

bool build_clip(const std::string &name, int frames, const std::string &sharedDir, Clip *clip,
                std::string *error) {
    for (const Scenario &s : all_scenarios()) {
        if (name != s.info.name) {
            continue;
        }
        if (frames == 0) {
            frames = s.info.defaultFrames;
        }
        if (frames < 2) {
            *error = "a clip needs at least 2 frames";
            return false;
        }
        // OpenCV reports trouble by exception; none may leave this library.
        try {
            return build(s, frames, sharedDir, clip, error);
        } catch (const cv::Exception &e) {
            *error = std::string("OpenCV: ") + e.what();
        } catch (const std::exception &e) {
            *error = e.what();
        }
        return false;
    }
    *error = "unknown scenario '" + name + "'";
    return false;
}

bool video_clip(const std::string &videoPath, int maxFrames, Clip *clip, std::string *error) {
    try {
        cv::VideoCapture video(videoPath);
        if (!video.isOpened()) {
            *error = "cannot read " + videoPath;
            return false;
        }
        clip->frames = 0;
        clip->nv12.clear();
        clip->truth.clear();
        cv::Mat frame, scaled;
        while ((maxFrames == 0 || clip->frames < maxFrames) && video.read(frame) && !frame.empty()) {
            const bool shrinking = frame.cols > kClipWidth || frame.rows > kClipHeight;
            cv::resize(frame, scaled, cv::Size(kClipWidth, kClipHeight), 0, 0,
                       shrinking ? cv::INTER_AREA : cv::INTER_LINEAR);
            clip->nv12.resize(clip->nv12.size() + kClipFrameBytes);
            to_nv12(scaled, clip->nv12.data() + clip->nv12.size() - kClipFrameBytes);
            ++clip->frames;
        }
        if (clip->frames == 0) {
            *error = "no frame in " + videoPath;
            return false;
        }
        return true;
    } catch (const cv::Exception &e) {
        *error = std::string("OpenCV: ") + e.what();
    }
    return false;
}

bool write_clip(const Clip &clip, const std::string &clipPath, const std::string &truthPath,
                std::string *error) {
    if (!clipPath.empty()) {
        FILE *out = fopen(clipPath.c_str(), "wb");
        if (out == nullptr) {
            *error = "cannot write " + clipPath + ": " + strerror(errno);
            return false;
        }
        const bool written = fwrite(clip.nv12.data(), 1, clip.nv12.size(), out) == clip.nv12.size();
        if (fclose(out) != 0 || !written) {
            *error = "cannot write " + clipPath + ": " + strerror(errno);
            return false;
        }
    }
    if (!truthPath.empty()) {
        FILE *out = fopen(truthPath.c_str(), "w");
        if (out == nullptr) {
            *error = "cannot write " + truthPath + ": " + strerror(errno);
            return false;
        }
        fprintf(out, "# size=%dx%d\n# frames=%d\nframe,person,x,y,w,h\n", kClipWidth, kClipHeight,
                clip.frames);
        for (const FaceTruth &t : clip.truth) {
            fprintf(out, "%d,%d,%d,%d,%d,%d\n", t.frame, t.person, t.x, t.y, t.w, t.h);
        }
        if (fclose(out) != 0) {
            *error = "cannot write " + truthPath + ": " + strerror(errno);
            return false;
        }
    }
    return true;
}

const FaceTruth *faces_on_frame(const Clip &clip, int frame, size_t *count) {
    auto first = std::lower_bound(clip.truth.begin(), clip.truth.end(), frame,
                                  [](const FaceTruth &t, int f) { return t.frame < f; });
    auto last = first;
    while (last != clip.truth.end() && last->frame == frame) {
        ++last;
    }
    *count = static_cast<size_t>(last - first);
    return *count == 0 ? nullptr : &*first;
}

bool frame_bgr(const Clip &clip, int frame, std::vector<uint8_t> *bgr) {
    if (frame < 0 || frame >= clip.frames) {
        return false;
    }
    try {
        cv::Mat nv12(kClipHeight * 3 / 2, kClipWidth, CV_8UC1,
                     const_cast<uint8_t *>(clip.nv12.data() + static_cast<size_t>(frame) * kClipFrameBytes));
        bgr->resize(static_cast<size_t>(kClipWidth) * kClipHeight * 3);
        cv::Mat out(kClipHeight, kClipWidth, CV_8UC3, bgr->data());
        cv::cvtColor(nv12, out, cv::COLOR_YUV2BGR_NV12);
    } catch (const cv::Exception &) {
        return false;
    }
    return true;
}

bool frame_to_png(const Clip &clip, int frame, const std::string &pngPath, std::string *error) {
    std::vector<uint8_t> bgr;
    if (!frame_bgr(clip, frame, &bgr)) {
        *error = "no frame " + std::to_string(frame);
        return false;
    }
    try {
        if (cv::imwrite(pngPath, cv::Mat(kClipHeight, kClipWidth, CV_8UC3, bgr.data()))) {
            return true;
        }
    } catch (const cv::Exception &) {
    }
    *error = "cannot write " + pngPath;
    return false;
}

}  // namespace scenario
