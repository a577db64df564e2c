/*
 * The platform's clock. Realtime runs use CLOCK_MONOTONIC. A lockstep run
 * lives on the source's own timeline instead: frame k is stamped k / fps
 * seconds, and MI_SYS_GetCurPts reads the time of the frame last taken plus
 * the wall time since, never reaching the next frame's time. So a replay that
 * analyses faster or slower than real time still shows what a camera would
 * have done at the video's pace.
 *
 * The same source time is published for other processes (camera_sim
 * --clock) as one little-endian 64-bit count of microseconds at the start of
 * a small file, written in place with atomic stores.
 */
#ifndef FACEDET_HOST_SOURCE_CLOCK_H
#define FACEDET_HOST_SOURCE_CLOCK_H

#include <cstdint>
#include <string>

#include "mi_common.h"

namespace host {

// The source time of frame `index` at `fps`, in microseconds.
MI_U64 source_frame_time(uint64_t index, double fps);

// From now on the clock follows the frames taken (lockstep), starting at 0;
// frames are `periodUs` apart.
void source_clock_start(MI_U64 periodUs);
// Frame at source time `ptsUs` was taken.
void source_clock_frame(MI_U64 ptsUs);
// Back to CLOCK_MONOTONIC.
void source_clock_stop();
// What MI_SYS_GetCurPts returns.
MI_U64 current_pts();

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

}  // namespace host

#endif
