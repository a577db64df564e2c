/* The wall clock: CLOCK_MONOTONIC in microseconds, the time base of realtime
 * frame stamps and MI_SYS_GetCurPts (lockstep runs: source_clock.h). */
#ifndef FACEDET_HOST_TIME_H
#define FACEDET_HOST_TIME_H

#include <time.h>

#include "mi_common.h"

namespace host {

inline MI_U64 monotonic_us() {
    struct timespec ts {};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<MI_U64>(ts.tv_sec) * 1000000u + static_cast<MI_U64>(ts.tv_nsec) / 1000u;
}

}  // namespace host

#endif
