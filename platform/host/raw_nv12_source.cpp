/*
 * Raw NV12 files: consecutive frames of exactly the port's size
 * (width*height*3/2 bytes each), no header. A trailing partial frame is
 * ignored. Frames are read by offset, so a port size change mid-clip simply
 * reinterprets the file at the new frame size from the current index on.
 */
#include <cerrno>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame_source.h"

namespace host {
namespace {

class RawNv12Source final : public FrameSource {
  public:
    explicit RawNv12Source(int fd) : fd_(fd) {}
    ~RawNv12Source() override { ::close(fd_); }
    RawNv12Source(const RawNv12Source &) = delete;
    RawNv12Source &operator=(const RawNv12Source &) = delete;

    double fps() const override { return 30.0; }

    bool next(int width, int height) override {
        const size_t frameBytes = static_cast<size_t>(width) * height * 3 / 2;
        if (frameBytes == 0) {
            return false;
        }
        frame_.resize(frameBytes);  // allocates only when the size changes
        const off_t offset = static_cast<off_t>(nextIndex_) * static_cast<off_t>(frameBytes);
        size_t done = 0;
        while (done < frameBytes) {
            const ssize_t n =
                ::pread(fd_, frame_.data() + done, frameBytes - done, offset + static_cast<off_t>(done));
            if (n < 0 && errno == EINTR) {
                continue;
            }
            if (n <= 0) {
                return false;  // end of file, or only a partial frame left
            }
            done += static_cast<size_t>(n);
        }
        width_ = width;
        height_ = height;
        ++nextIndex_;
        return true;
    }

    void render(int width, int height, uint8_t *dst) override {
        render_nv12(frame_.data(), width_, height_, dst, width, height);
    }

    bool rewind() override {
        nextIndex_ = 0;
        return true;
    }

  private:
    int fd_;
    uint64_t nextIndex_ = 0;
    std::vector<uint8_t> frame_;  // the current frame, reused across frames
    int width_ = 0;
    int height_ = 0;
};

}  // namespace

std::unique_ptr<FrameSource> open_raw_nv12_source(const std::string &path, std::string *error) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        *error = std::strerror(errno);
        return nullptr;
    }
    struct stat st {};
    if (::fstat(fd, &st) != 0) {
        *error = std::string("fstat(): ") + std::strerror(errno);
        ::close(fd);
        return nullptr;
    }
    if (!S_ISREG(st.st_mode)) {
        *error = "not a regular file";
        ::close(fd);
        return nullptr;
    }
    if (st.st_size == 0) {
        *error = "the file is empty";
        ::close(fd);
        return nullptr;
    }
    return std::make_unique<RawNv12Source>(fd);
}

}  // namespace host
