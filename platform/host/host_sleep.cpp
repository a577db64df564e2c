/*
 * The daemon's own pauses on a PC. The frame loop pauses with usleep while
 * auto framing is stopped (100 ms a pass) or off (300 ms a pass). On the
 * camera they are wall time in which frames come and go; in a replay at the
 * camera's pace they must be the camera's time instead, or a run that starts
 * stopped takes the wall clock's seconds and every frame. The program's
 * usleep is therefore this one (a definition in the program comes before the
 * C library's): the frame thread's pauses go to the pace's clock
 * (Pipeline::consumer_pause), every other one sleeps as usleep does. The
 * signal handler sleeps with nanosleep and never comes here.
 */
#include <time.h>
#include <unistd.h>

#include "host_system.h"

void host::keep_program_sleep() {}

extern "C" int usleep(useconds_t us) {
    if (const std::shared_ptr<host::Pipeline> pipeline = host::current_pipeline();
        pipeline && pipeline->consumer_pause(us)) {
        return 0;
    }
    struct timespec pause = {static_cast<time_t>(us / 1000000), static_cast<long>(us % 1000000) * 1000};
    return nanosleep(&pause, nullptr);
}
