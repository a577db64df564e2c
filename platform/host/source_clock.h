/*
 * The source's timeline, on which lockstep and camera-pace runs live: frame
 * k is stamped k / fps seconds (pace_clock.h says how the clock moves
 * between frames). So a replay that analyses faster or slower than real time
 * still shows what a camera would have done at the video's pace.
 *
 * The same source time is published for other processes (camera_sim
 * --clock) as one native-order 64-bit count of microseconds at the start of
 * a small file, written in place with atomic stores; both sides of that file
 * are here.
 */
#ifndef FACEDET_HOST_SOURCE_CLOCK_H
#define FACEDET_HOST_SOURCE_CLOCK_H

#include <cstdint>
#include <string>

#include "mi_common.h"

namespace host {

// The source time of frame `index` at `fps`, in microseconds.
MI_U64 source_frame_time(uint64_t index, double fps);

// The shared page holding the source time, for other processes.
class ClockFile {
  public:
    ClockFile() = default;
    ~ClockFile();
    ClockFile(const ClockFile &) = delete;
    ClockFile &operator=(const ClockFile &) = delete;
    // Creates `path` (or reuses it, resized to 8 bytes), maps it and stores
    // 0; false with *error on failure.
    bool open(const std::string &path, std::string *error);
    void publish(MI_U64 timeUs);
    void close();

  private:
    uint64_t *word_ = nullptr;
};

// The reading side, in another process: maps the file once it exists (the
// daemon makes it when it starts) and reads the time with atomic loads.
class ClockFileReader {
  public:
    explicit ClockFileReader(std::string path) : path_(std::move(path)) {}
    ~ClockFileReader();
    ClockFileReader(const ClockFileReader &) = delete;
    ClockFileReader &operator=(const ClockFileReader &) = delete;
    // The published time; 0 until the file is there.
    MI_U64 now_us();

  private:
    std::string path_;
    const uint64_t *word_ = nullptr;
};

}  // namespace host

#endif
