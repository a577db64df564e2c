/*
 * A recording on disk, as the recorder's writer makes it: a new directory per
 * recorded process inside FACEDET_RECORD's folder, so that a daemon restarted
 * after a crash never writes over the recording of the run that crashed; its
 * file with the header; records appended whole, only ever at the end; the
 * size limit, which counts every recording in the folder; and a sync once a
 * second. Writer thread only.
 */
#ifndef FACEDET_RECORDER_RECORDING_FILE_H
#define FACEDET_RECORDER_RECORDING_FILE_H

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>

#include "recorder_settings.h"

namespace recorder {

class RecordingFile {
  public:
    RecordingFile() = default;
    ~RecordingFile() { close(); }
    RecordingFile(const RecordingFile &) = delete;
    RecordingFile &operator=(const RecordingFile &) = delete;

    // Makes the folder if it is missing (not its parents), a new recording
    // directory in it and its file with the header. False with the reason in
    // `why` (naming the path that failed).
    bool create(const Settings &s, uint64_t monotonicUs, char *why, size_t whySize);
    const char *directory() const { return directory_; }

    // Appends one record made of `parts`. False with the reason when it would
    // pass the size limit (unless `overLimit`) or could not be written whole;
    // what was written of it is cut off again.
    bool append(const iovec *parts, int count, bool overLimit, char *why, size_t whySize);

    // fdatasync when something was written and a second has passed since the last.
    void sync_if_due(uint64_t monotonicUs);
    void close();

  private:
    int fd_ = -1;
    char directory_[640] = {};
    uint64_t size_ = 0;    // bytes of this recording
    uint64_t budget_ = 0;  // bytes this recording may take
    uint64_t maxMb_ = 0;
    uint64_t lastSyncUs_ = 0;
    bool unsynced_ = false;
};

}  // namespace recorder

#endif
