/*
 * Choosing a frame source by its path, and the NV12 helper shared by them.
 */
#include "frame_source.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include <unistd.h>

#include "recording/reader.h"

namespace host {
namespace {

std::string lower_extension(const std::string &path) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) {
        return std::string();
    }
    std::string ext = path.substr(dot);
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return ext;
}

}  // namespace

const std::vector<std::vector<uint8_t>> &FrameSource::controls_before() const {
    static const std::vector<std::vector<uint8_t>> none;
    return none;
}

bool is_raw_nv12_path(const std::string &path) {
    const std::string ext = lower_extension(path);
    return ext == ".nv12" || ext == ".yuv";
}

std::unique_ptr<FrameSource> open_frame_source(const std::string &path, std::string *error) {
    // Checked here so that a missing file gets the system's reason rather
    // than a decoder's guess (and no decoder warnings on stderr).
    if (::access(path.c_str(), R_OK) != 0) {
        *error = std::strerror(errno);
        return nullptr;
    }
    if (recording::is_recording_path(path)) {
        return open_recording_source(path, error);
    }
    if (is_raw_nv12_path(path)) {
        return open_raw_nv12_source(path, error);
    }
    std::string videoError;
#if FACEDET_HAS_FFMPEG
    // Videos through FFmpeg; stills and devices stay with OpenCV, as does
    // whatever FFmpeg declines.
    const std::string ext = lower_extension(path);
    const bool still = ext == ".jpg" || ext == ".jpeg" || ext == ".png" || ext == ".bmp";
    if (!still && path.rfind("/dev/", 0) != 0) {
        if (std::unique_ptr<FrameSource> video = open_ffmpeg_source(path, &videoError)) {
            return video;
        }
    }
#endif
#if FACEDET_HAS_OPENCV
    std::unique_ptr<FrameSource> source = open_opencv_source(path, error);
    if (!source && !videoError.empty()) {
        *error = videoError;
    }
    return source;
#else
    *error = !videoError.empty()
                 ? videoError
                 : "this build reads only raw NV12 files (.nv12, .yuv): it was built without OpenCV";
    return nullptr;
#endif
}

void render_nv12(const uint8_t *src, int srcWidth, int srcHeight, uint8_t *dst, int dstWidth, int dstHeight) {
    if (srcWidth == dstWidth && srcHeight == dstHeight) {
        std::memcpy(dst, src, static_cast<size_t>(srcWidth) * srcHeight * 3 / 2);
    } else {
        scale_nv12_nearest(src, srcWidth, srcHeight, dst, dstWidth, dstHeight);
    }
}

void scale_nv12_nearest(const uint8_t *src, int srcWidth, int srcHeight, uint8_t *dst, int dstWidth,
                        int dstHeight) {
    for (int y = 0; y < dstHeight; ++y) {
        const uint8_t *srow = src + static_cast<size_t>(y * srcHeight / dstHeight) * srcWidth;
        uint8_t *drow = dst + static_cast<size_t>(y) * dstWidth;
        for (int x = 0; x < dstWidth; ++x) {
            drow[x] = srow[x * srcWidth / dstWidth];
        }
    }
    const uint8_t *suv = src + static_cast<size_t>(srcWidth) * srcHeight;
    uint8_t *duv = dst + static_cast<size_t>(dstWidth) * dstHeight;
    const int sw = srcWidth / 2, sh = srcHeight / 2, dw = dstWidth / 2, dh = dstHeight / 2;
    for (int y = 0; y < dh; ++y) {
        const uint8_t *srow = suv + static_cast<size_t>(y * sh / dh) * srcWidth;
        uint8_t *drow = duv + static_cast<size_t>(y) * dstWidth;
        for (int x = 0; x < dw; ++x) {
            const int sx = x * sw / dw;
            drow[2 * x] = srow[2 * sx];
            drow[2 * x + 1] = srow[2 * sx + 1];
        }
    }
}

}  // namespace host
