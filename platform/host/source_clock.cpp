#include "source_clock.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>

namespace host {
namespace {

constexpr size_t kClockFileBytes = 8;

}  // namespace

MI_U64 source_frame_time(uint64_t index, double fps) {
    return static_cast<MI_U64>(std::llround(static_cast<double>(index) * 1e6 / fps));
}

ClockFile::~ClockFile() {
    close();
}

bool ClockFile::open(const std::string &path, std::string *error) {
    close();
    // Never truncated below its size: a reader may still map the file of an
    // earlier run, and a mapping past the end of a file faults.
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0 || ::ftruncate(fd, kClockFileBytes) != 0) {
        *error = std::strerror(errno);
        if (fd >= 0) {
            ::close(fd);
        }
        return false;
    }
    void *map = ::mmap(nullptr, kClockFileBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ::close(fd);
    if (map == MAP_FAILED) {
        *error = std::strerror(errno);
        return false;
    }
    word_ = static_cast<uint64_t *>(map);
    publish(0);
    return true;
}

void ClockFile::publish(MI_U64 timeUs) {
    if (word_) {
        __atomic_store_n(word_, static_cast<uint64_t>(timeUs), __ATOMIC_RELEASE);
    }
}

void ClockFile::close() {
    if (word_) {
        ::munmap(word_, kClockFileBytes);
        word_ = nullptr;
    }
}

ClockFileReader::~ClockFileReader() {
    if (word_) {
        ::munmap(const_cast<uint64_t *>(word_), kClockFileBytes);
    }
}

MI_U64 ClockFileReader::now_us() {
    if (word_ == nullptr) {
        const int fd = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat st;
        if (fd < 0 || ::fstat(fd, &st) != 0 || st.st_size < static_cast<off_t>(kClockFileBytes)) {
            if (fd >= 0) {
                ::close(fd);
            }
            return 0;  // the daemon has not made it yet
        }
        void *page = ::mmap(nullptr, kClockFileBytes, PROT_READ, MAP_SHARED, fd, 0);
        ::close(fd);
        if (page == MAP_FAILED) {
            return 0;
        }
        word_ = static_cast<const uint64_t *>(page);
    }
    return __atomic_load_n(word_, __ATOMIC_ACQUIRE);
}

}  // namespace host
