#include "source_clock.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstring>

#include "host_time.h"

namespace host {
namespace {

// Read by any thread in MI_SYS_GetCurPts; written by the frame consumer.
std::atomic<bool> s_following{false};
std::atomic<MI_U64> s_periodUs{33333};
std::atomic<MI_U64> s_frameUs{0};
std::atomic<MI_U64> s_takenAtUs{0};  // CLOCK_MONOTONIC when that frame was taken

constexpr size_t kClockFileBytes = 8;

}  // namespace

MI_U64 source_frame_time(uint64_t index, double fps) {
    return static_cast<MI_U64>(std::llround(static_cast<double>(index) * 1e6 / fps));
}

void source_clock_start(MI_U64 periodUs) {
    s_periodUs = std::max<MI_U64>(periodUs, 1);
    s_frameUs = 0;
    s_takenAtUs = monotonic_us();
    s_following = true;
}

void source_clock_frame(MI_U64 ptsUs) {
    s_takenAtUs = monotonic_us();
    s_frameUs = ptsUs;
}

void source_clock_stop() {
    s_following = false;
}

MI_U64 current_pts() {
    if (!s_following) {
        return monotonic_us();
    }
    const MI_U64 frame = s_frameUs, since = monotonic_us() - s_takenAtUs;
    return frame + std::min<MI_U64>(since, s_periodUs - 1);
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

}  // namespace host
