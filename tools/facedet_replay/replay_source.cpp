#include "replay_source.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "replay_logs.h"

namespace replay {

namespace {

constexpr int kNv12Bytes = kFrameWidth * kFrameHeight * 3 / 2;

// Scaled to the port's size as the platform scales its sources.
cv::Mat to_port_size(const cv::Mat &bgr) {
    if (bgr.cols == kFrameWidth && bgr.rows == kFrameHeight) {
        return bgr.clone();
    }
    const bool shrinking = bgr.cols > kFrameWidth || bgr.rows > kFrameHeight;
    cv::Mat out;
    cv::resize(bgr, out, cv::Size(kFrameWidth, kFrameHeight), 0, 0,
               shrinking ? cv::INTER_AREA : cv::INTER_LINEAR);
    return out;
}

// By the extension, as the platform tells its raw sources.
bool is_raw_path(const std::string &path) {
    std::string extension = std::filesystem::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension == ".nv12" || extension == ".yuv";
}

}  // namespace

SourceInfo probe_source(const std::string &path) {
    SourceInfo info;
    if (recording::is_recording_path(path)) {
        info.kind = "recording";
        info.ok = true;
        return info;
    }
    std::ifstream probe(path, std::ios::binary);
    if (!probe) {
        info.error = "cannot read '" + path + "'";
        return info;
    }
    if (is_raw_path(path)) {
        probe.seekg(0, std::ios::end);
        const long long bytes = static_cast<long long>(probe.tellg());
        if (bytes < kNv12Bytes) {
            info.error = "'" + path + "' holds no whole NV12 frame of 416x234 (" +
                         std::to_string(kNv12Bytes) + " bytes each)";
            return info;
        }
        info.kind = "raw";
        info.frames = static_cast<long>(bytes / kNv12Bytes);
        info.fps = 30;
        info.ok = true;
        return info;
    }
    if (cv::haveImageReader(path)) {
        if (cv::imread(path, cv::IMREAD_COLOR).empty()) {
            info.error = "cannot decode the image '" + path + "'";
            return info;
        }
        info.kind = "image";
        info.frames = 1;
        info.fps = 30;
        info.ok = true;
        return info;
    }
#if FACEDET_HAS_FFMPEG
    std::string error;
    const std::unique_ptr<host::VideoDecoder> decoder = host::VideoDecoder::open(path, &error);
    if (!decoder || !decoder->next()) {
        info.error = "FFmpeg cannot read a frame of '" + path + "'" + (decoder ? "" : ": " + error);
        return info;
    }
    info.kind = "video";
    info.fps = decoder->fps();
    info.frames = decoder->frames();
#else
    // FFmpeg only: the other back-ends' probing of a file they cannot read
    // leaks inside their plugins, which the sanitizer builds report as ours.
    cv::VideoCapture capture(path, cv::CAP_FFMPEG);
    cv::Mat first;
    if (!capture.isOpened() || !capture.read(first) || first.empty()) {
        info.error = "OpenCV (FFmpeg) cannot read a frame of '" + path + "'";
        return info;
    }
    info.kind = "video";
    const double fps = capture.get(cv::CAP_PROP_FPS);
    info.fps = fps > 0.5 && fps < 1000 ? fps : 30;
    const double count = capture.get(cv::CAP_PROP_FRAME_COUNT);
    info.frames = count > 0 ? static_cast<long>(count) : -1;
#endif
    info.ok = true;
    return info;
}

cv::Mat SourceReader::frame(uint64_t index) {
    if (length_ > 0) {
        index %= static_cast<uint64_t>(length_);
    }
    if (!current_.empty() && index == position_ - 1) {
        return current_;
    }
    if (!open_ || index < position_) {
        reopen();
    }
    while (position_ <= index) {
        cv::Mat next = read_next();
        if (next.empty()) {
            if (position_ == 0) {
                return cv::Mat();  // nothing readable at all
            }
            length_ = static_cast<long>(position_);
            index %= static_cast<uint64_t>(length_);
            reopen();
            continue;
        }
        current_ = next;
        ++position_;
    }
    return current_;
}

void SourceReader::reopen() {
    position_ = 0;
    current_ = cv::Mat();
    open_ = true;
    still_ = cv::Mat();
    raw_.reset();
    recording_.reset();
    video_.release();
    std::string error;
    if (recording::is_recording_path(path_)) {
        recording_ = recording::Reader::open(path_, recording::kAnalysisFrame, &error);
    } else if (is_raw_path(path_)) {
        raw_ = std::make_unique<std::ifstream>(path_, std::ios::binary);
    } else if (cv::haveImageReader(path_)) {
        still_ = cv::imread(path_, cv::IMREAD_COLOR);
    } else {
#if FACEDET_HAS_FFMPEG
        video_ = host::VideoDecoder::open(path_, &error);
#else
        video_.open(path_, cv::CAP_FFMPEG);
#endif
    }
}

cv::Mat SourceReader::read_next() {
    if (recording_) {
        while (recording_->next(&record_)) {
            if (record_.kind == recording::Kind::Frame) {
                cv::Mat nv12(kFrameHeight * 3 / 2, kFrameWidth, CV_8UC1, record_.bytes.data());
                cv::Mat bgr;
                cv::cvtColor(nv12, bgr, cv::COLOR_YUV2BGR_NV12);
                return bgr;
            }
        }
        return cv::Mat();
    }
    if (raw_) {
        cv::Mat nv12(kFrameHeight * 3 / 2, kFrameWidth, CV_8UC1);
        if (!raw_->read(reinterpret_cast<char *>(nv12.data), kNv12Bytes)) {
            return cv::Mat();
        }
        cv::Mat bgr;
        cv::cvtColor(nv12, bgr, cv::COLOR_YUV2BGR_NV12);
        return bgr;
    }
    if (!still_.empty()) {
        // A still image is a clip of one frame.
        cv::Mat out = position_ == 0 ? to_port_size(still_) : cv::Mat();
        return out;
    }
#if FACEDET_HAS_FFMPEG
    if (!video_ || !video_->next()) {
        return cv::Mat();
    }
    nv12_.create(kFrameHeight * 3 / 2, kFrameWidth, CV_8UC1);
    video_->scale_to_nv12(kFrameWidth, kFrameHeight, nv12_.data);
    cv::Mat bgr;
    cv::cvtColor(nv12_, bgr, cv::COLOR_YUV2BGR_NV12);
    return bgr;
#else
    cv::Mat raw;
    if (!video_.isOpened() || !video_.read(raw) || raw.empty()) {
        return cv::Mat();
    }
    return to_port_size(raw);
#endif
}

}  // namespace replay
