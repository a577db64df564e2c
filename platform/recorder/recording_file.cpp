// The recording's directory and file, written by appending whole records.
#include "recording_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "recording/format.h"

namespace recorder {
namespace {

constexpr uint64_t kSyncEveryUs = 1000000;

// The recordings already in the folder: each directory's recording file.
uint64_t recorded_bytes(const char *folder) {
    DIR *dir = opendir(folder);
    if (dir == nullptr) {
        return 0;
    }
    uint64_t bytes = 0;
    while (const dirent *entry = readdir(dir)) {
        char path[1024];
        struct stat st;
        snprintf(path, sizeof path, "%s/%s/%s", folder, entry->d_name, recording::kRecordingFileName);
        if (entry->d_name[0] != '.' && stat(path, &st) == 0 && S_ISREG(st.st_mode)) {
            bytes += static_cast<uint64_t>(st.st_size);
        }
    }
    closedir(dir);
    return bytes;
}

// Writes every part, going on after a short write.
bool write_all(int fd, const iovec *parts, int count) {
    iovec left[4];
    if (count > 4) {
        errno = EINVAL;
        return false;
    }
    memcpy(left, parts, sizeof *parts * count);
    iovec *next = left;
    while (count > 0) {
        ssize_t n = writev(fd, next, count);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        if (n == 0) {
            errno = EIO;
            return false;
        }
        for (; count > 0 && static_cast<size_t>(n) >= next->iov_len; ++next, --count) {
            n -= static_cast<ssize_t>(next->iov_len);
        }
        if (count > 0) {
            next->iov_base = static_cast<uint8_t *>(next->iov_base) + n;
            next->iov_len -= static_cast<size_t>(n);
        }
    }
    return true;
}

uint64_t wall_us() {
    timespec t;
    clock_gettime(CLOCK_REALTIME, &t);
    return static_cast<uint64_t>(t.tv_sec) * 1000000u + static_cast<uint64_t>(t.tv_nsec) / 1000u;
}

}  // namespace

bool RecordingFile::create(const Settings &s, uint64_t monotonicUs, char *why, size_t whySize) {
    if (mkdir(s.dir, 0755) != 0 && errno != EEXIST) {
        snprintf(why, whySize, "mkdir %s: %s", s.dir, strerror(errno));
        return false;
    }
    const uint64_t before = recorded_bytes(s.dir);
    maxMb_ = s.maxBytes >> 20;
    if (before + recording::kFileHeaderBytes > s.maxBytes) {
        snprintf(why, whySize, "%s already holds %llu MiB of recordings, FACEDET_RECORD_MAX_MB is %llu",
                 s.dir, static_cast<unsigned long long>(before >> 20),
                 static_cast<unsigned long long>(maxMb_));
        return false;
    }
    budget_ = s.maxBytes - before;
    const time_t began = time(nullptr);
    for (int attempt = 0;; ++attempt) {
        char name[64];
        recording_name(began, static_cast<int>(getpid()), attempt, name, sizeof name);
        snprintf(directory_, sizeof directory_, "%s/%s", s.dir, name);
        if (mkdir(directory_, 0755) == 0) {
            break;
        }
        if (errno != EEXIST || attempt == 99) {
            snprintf(why, whySize, "mkdir %s: %s", directory_, strerror(errno));
            return false;
        }
    }
    char path[700];
    snprintf(path, sizeof path, "%s/%s", directory_, recording::kRecordingFileName);
    fd_ = open(path, O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0644);
    if (fd_ < 0) {
        snprintf(why, whySize, "%s: %s", path, strerror(errno));
        return false;
    }
    recording::FileHeader header;
    header.startWallUs = wall_us();
    header.startMonotonicUs = monotonicUs;
    header.pid = static_cast<uint32_t>(getpid());
    uint8_t bytes[recording::kFileHeaderBytes];
    recording::encode_file_header(header, bytes);
    const iovec part = {bytes, sizeof bytes};
    if (!write_all(fd_, &part, 1)) {
        snprintf(why, whySize, "%s: %s", path, strerror(errno));
        close();
        return false;
    }
    size_ = sizeof bytes;
    lastSyncUs_ = monotonicUs;
    unsynced_ = true;
    return true;
}

bool RecordingFile::append(const iovec *parts, int count, bool overLimit, char *why, size_t whySize) {
    if (fd_ < 0) {
        snprintf(why, whySize, "the recording is closed");
        return false;
    }
    uint64_t bytes = 0;
    for (int i = 0; i < count; ++i) {
        bytes += parts[i].iov_len;
    }
    if (!overLimit && size_ + bytes > budget_) {
        snprintf(why, whySize, "FACEDET_RECORD_MAX_MB=%llu reached", static_cast<unsigned long long>(maxMb_));
        return false;
    }
    if (!write_all(fd_, parts, count)) {
        snprintf(why, whySize, "%s", strerror(errno));
        // A record cut short would be the end of what a reader reads.
        if (ftruncate(fd_, static_cast<off_t>(size_)) != 0) {
            close();
        }
        return false;
    }
    size_ += bytes;
    unsynced_ = true;
    return true;
}

void RecordingFile::sync_if_due(uint64_t monotonicUs) {
    if (fd_ >= 0 && unsynced_ && monotonicUs - lastSyncUs_ >= kSyncEveryUs) {
        fdatasync(fd_);
        lastSyncUs_ = monotonicUs;
        unsynced_ = false;
    }
}

void RecordingFile::close() {
    if (fd_ >= 0) {
        if (unsynced_) {
            fdatasync(fd_);
        }
        ::close(fd_);
        fd_ = -1;
    }
}

}  // namespace recorder
