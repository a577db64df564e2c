#include "frame_tap.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace host {
namespace {

size_t picture_bytes(int width, int height) {
    return static_cast<size_t>(width) * height * 3 / 2;
}

// Orders the picture's bytes against the sequence count, which the other
// process reads. ThreadSanitizer models no fences (and its builds never share
// a tap between processes), so there the count's own accesses do it alone.
void fence(int order) {
#ifndef __SANITIZE_THREAD__
    __atomic_thread_fence(order);
#else
    (void)order;
#endif
}

}  // namespace

FrameTapWriter::~FrameTapWriter() {
    close();
}

bool FrameTapWriter::open(const std::string &path, std::string *error) {
    close();
    // Made now, empty, so that a path that cannot be written is reported at start.
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        *error = std::strerror(errno);
        return false;
    }
    ::close(fd);
    path_ = path;
    return true;
}

void FrameTapWriter::publish(uint64_t sourceIndex, uint64_t ptsUs, int width, int height,
                             const uint8_t *nv12) {
    if (path_.empty()) {
        return;
    }
    if (map_ == nullptr) {
        const size_t bytes = sizeof(FrameTapHeader) + picture_bytes(width, height);
        const int fd = ::open(path_.c_str(), O_RDWR | O_CLOEXEC);
        void *map = MAP_FAILED;
        if (fd >= 0 && ::ftruncate(fd, static_cast<off_t>(bytes)) == 0) {
            map = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        }
        if (fd >= 0) {
            ::close(fd);
        }
        if (map == MAP_FAILED) {
            path_.clear();  // tried once; the frames go on without a tap
            return;
        }
        map_ = map;
        bytes_ = bytes;
        width_ = width;
        height_ = height;
        auto *header = static_cast<FrameTapHeader *>(map_);
        header->version = kFrameTapVersion;
        header->width = static_cast<uint32_t>(width);
        header->height = static_cast<uint32_t>(height);
        __atomic_store_n(&header->magic, kFrameTapMagic, __ATOMIC_RELEASE);
    }
    if (width != width_ || height != height_) {
        return;
    }
    auto *header = static_cast<FrameTapHeader *>(map_);
    const uint64_t sequence = __atomic_load_n(&header->sequence, __ATOMIC_RELAXED);
    __atomic_store_n(&header->sequence, sequence + 1, __ATOMIC_SEQ_CST);
    fence(__ATOMIC_RELEASE);
    __atomic_store_n(&header->sourceIndex, sourceIndex, __ATOMIC_RELAXED);
    __atomic_store_n(&header->ptsUs, ptsUs, __ATOMIC_RELAXED);
    std::memcpy(header + 1, nv12, picture_bytes(width, height));
    __atomic_store_n(&header->sequence, sequence + 2, __ATOMIC_RELEASE);
}

void FrameTapWriter::close() {
    if (map_ != nullptr) {
        ::munmap(map_, bytes_);
        map_ = nullptr;
    }
    path_.clear();
}

FrameTapReader::~FrameTapReader() {
    unmap();
}

void FrameTapReader::unmap() {
    if (map_ != nullptr) {
        ::munmap(const_cast<void *>(map_), bytes_);
        map_ = nullptr;
    }
}

bool FrameTapReader::read_newer(const std::string &path, TapFrame *out) {
    if (map_ == nullptr) {
        const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) {
            return false;
        }
        struct stat st;
        void *map = MAP_FAILED;
        if (::fstat(fd, &st) == 0 && static_cast<size_t>(st.st_size) > sizeof(FrameTapHeader)) {
            map = ::mmap(nullptr, static_cast<size_t>(st.st_size), PROT_READ, MAP_SHARED, fd, 0);
        }
        ::close(fd);
        if (map == MAP_FAILED) {
            return false;  // not written yet
        }
        map_ = map;
        bytes_ = static_cast<size_t>(st.st_size);
    }
    const auto *header = static_cast<const FrameTapHeader *>(map_);
    if (__atomic_load_n(&header->magic, __ATOMIC_ACQUIRE) != kFrameTapMagic ||
        header->version != kFrameTapVersion) {
        return false;
    }
    const int width = static_cast<int>(header->width), height = static_cast<int>(header->height);
    if (sizeof(FrameTapHeader) + picture_bytes(width, height) > bytes_) {
        unmap();  // another daemon made it anew since: map it again next time
        return false;
    }
    // A few tries: the writer only holds a picture for one copy.
    for (int attempt = 0; attempt < 4; ++attempt) {
        const uint64_t before = __atomic_load_n(&header->sequence, __ATOMIC_ACQUIRE);
        if (before == out->sequence) {
            return false;
        }
        if ((before & 1) != 0) {
            continue;
        }
        out->nv12.resize(picture_bytes(width, height));
        out->sourceIndex = __atomic_load_n(&header->sourceIndex, __ATOMIC_RELAXED);
        out->ptsUs = __atomic_load_n(&header->ptsUs, __ATOMIC_RELAXED);
        std::memcpy(out->nv12.data(), header + 1, out->nv12.size());
        fence(__ATOMIC_ACQUIRE);
        if (__atomic_load_n(&header->sequence, __ATOMIC_SEQ_CST) == before) {
            out->sequence = before;
            out->width = width;
            out->height = height;
            return true;
        }
    }
    return false;
}

}  // namespace host
