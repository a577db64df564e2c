/*
 * Still images, video files and V4L2 devices through OpenCV, scaled to the
 * port size and converted to NV12. Built only with FACEDET_WITH_OPENCV.
 *
 * Scratch matrices are members so that steady-state frames allocate nothing:
 * cv::Mat::create keeps its buffer while the size stays the same.
 */
#include <algorithm>
#include <cctype>
#include <cstring>
#include <exception>
#include <fstream>
#include <iterator>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include "frame_source.h"

namespace host {
namespace {

bool has_image_extension(const std::string &path) {
    std::string lowerPath = path;
    std::transform(lowerPath.begin(), lowerPath.end(), lowerPath.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const char *ext : {".jpg", ".jpeg", ".png", ".bmp"}) {
        const size_t n = std::strlen(ext);
        if (lowerPath.size() > n && lowerPath.compare(lowerPath.size() - n, n, ext) == 0) {
            return true;
        }
    }
    return false;
}

class OpenCvSource final : public FrameSource {
  public:
    // A still image: a clip of one frame.
    explicit OpenCvSource(cv::Mat image) : still_(true), image_(std::move(image)) {}

    OpenCvSource(const std::string &path, bool device) : path_(path), device_(device), still_(false) {}

    bool open_capture(std::string *error) {
        const bool ok = device_ ? capture_.open(path_, cv::CAP_V4L2) : capture_.open(path_);
        if (!ok || !capture_.isOpened()) {
            *error = device_ ? "OpenCV cannot open the V4L2 device" : "OpenCV cannot decode it";
            return false;
        }
        // Containers and drivers may report 0 or nonsense; a camera's 30 fps is the fallback.
        const double reported = capture_.get(cv::CAP_PROP_FPS);
        fps_ = (reported >= 1.0 && reported <= 240.0) ? reported : 30.0;
        return true;
    }

    double fps() const override { return fps_; }
    bool live() const override { return device_; }

    bool next(int, int) override {
        if (still_) {
            if (stillShown_) {
                return false;
            }
            stillShown_ = true;
            current_ = &image_;
            return true;
        }
        if (!capture_.read(frame_) || frame_.empty()) {
            return false;
        }
        if (frame_.channels() == 1) {
            cv::cvtColor(frame_, colour_, cv::COLOR_GRAY2BGR);
            current_ = &colour_;
        } else if (frame_.channels() == 4) {
            cv::cvtColor(frame_, colour_, cv::COLOR_BGRA2BGR);
            current_ = &colour_;
        } else {
            current_ = &frame_;
        }
        return true;
    }

    void render(int width, int height, uint8_t *dst) override {
        const cv::Mat &src = *current_;
        const cv::Mat *bgr = &src;
        if (src.cols != width || src.rows != height) {
            const bool shrinking = width < src.cols || height < src.rows;
            cv::resize(src, scaled_, cv::Size(width, height), 0, 0,
                       shrinking ? cv::INTER_AREA : cv::INTER_LINEAR);
            bgr = &scaled_;
        }
        // I420: Y plane, then U quarter plane, then V quarter plane.
        cv::cvtColor(*bgr, i420_, cv::COLOR_BGR2YUV_I420);
        const size_t lumaBytes = static_cast<size_t>(width) * height;
        const size_t chromaBytes = lumaBytes / 4;
        const uint8_t *yuv = i420_.ptr<uint8_t>(0);
        std::memcpy(dst, yuv, lumaBytes);
        const uint8_t *u = yuv + lumaBytes;
        const uint8_t *v = u + chromaBytes;
        uint8_t *uv = dst + lumaBytes;
        for (size_t i = 0; i < chromaBytes; ++i) {
            uv[2 * i] = u[i];
            uv[2 * i + 1] = v[i];
        }
    }

    bool rewind() override {
        if (still_) {
            stillShown_ = false;
            return true;
        }
        if (device_) {
            return false;
        }
        // Seeking to frame 0 is unreliable with some codecs; reopening is not.
        capture_.release();
        std::string ignored;
        return open_capture(&ignored);
    }

  private:
    std::string path_;
    bool device_ = false;
    bool still_;
    double fps_ = 30.0;
    bool stillShown_ = false;
    cv::VideoCapture capture_;
    cv::Mat image_;
    cv::Mat frame_;
    cv::Mat colour_;
    cv::Mat scaled_;
    cv::Mat i420_;
    const cv::Mat *current_ = nullptr;
};

// OpenCV picks its decoder by the content, whatever the file's name, and some
// of its decoders (medical and JPEG 2000 ones among them) abort the process on
// a damaged file. Only the formats a camera developer feeds are let through.
bool is_still_format_we_read(const std::vector<uint8_t> &bytes) {
    auto starts = [&bytes](const char *magic, size_t n, size_t at = 0) {
        return bytes.size() >= at + n && std::memcmp(bytes.data() + at, magic, n) == 0;
    };
    const bool pnm = bytes.size() >= 2 && bytes[0] == 'P' && bytes[1] >= '1' && bytes[1] <= '6';
    return starts("\x89PNG", 4) || starts("\xFF\xD8\xFF", 3) || starts("BM", 2) || starts("II*\0", 4) ||
           starts("MM\0*", 4) || (starts("RIFF", 4) && starts("WEBP", 4, 8)) || pnm;
}

std::unique_ptr<FrameSource> decode_image(const std::vector<uint8_t> &bytes, std::string *error) {
    if (!is_still_format_we_read(bytes)) {
        *error = "not a PNG, JPEG, BMP, TIFF, WebP or PNM image";
        return nullptr;
    }
    cv::Mat image = cv::imdecode(bytes, cv::IMREAD_COLOR);
    if (image.empty()) {
        *error = "OpenCV cannot read it as an image";
        return nullptr;
    }
    if (image.cols < 2 || image.rows < 2) {
        *error = "the image is smaller than 2x2";
        return nullptr;
    }
    return std::make_unique<OpenCvSource>(std::move(image));
}

std::unique_ptr<FrameSource> open_image(const std::string &path, std::string *error) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(file)),
                                     std::istreambuf_iterator<char>());
    return decode_image(bytes, error);
}

std::unique_ptr<FrameSource> open_source(const std::string &path, std::string *error) {
    if (has_image_extension(path)) {
        return open_image(path, error);
    }
    const bool device = path.rfind("/dev/video", 0) == 0;
    auto source = std::make_unique<OpenCvSource>(path, device);
    if (source->open_capture(error)) {
        return source;
    }
    // Other image formats are probed only after the video decoders declined:
    // probing wakes every image codec OpenCV has, some with their own threads.
    if (!device && cv::haveImageReader(path)) {
        return open_image(path, error);
    }
    return nullptr;
}

}  // namespace

std::unique_ptr<FrameSource> open_opencv_source(const std::string &path, std::string *error) {
    // OpenCV reports some failures by exception; the MI boundary must not see them.
    try {
        return open_source(path, error);
    } catch (const std::exception &e) {
        *error = std::string("OpenCV: ") + e.what();
        return nullptr;
    }
}

std::unique_ptr<FrameSource> open_image_bytes(const std::vector<uint8_t> &bytes, std::string *error) {
    try {
        return decode_image(bytes, error);
    } catch (const std::exception &e) {
        *error = std::string("OpenCV: ") + e.what();
        return nullptr;
    }
}

}  // namespace host
