// The trace logger: console and a trace file that wraps at about 10 MiB.
#include <sys/stat.h>
#include <sys/time.h>

#include <cstring>
#include <ctime>

#include "dbgout/dbgout.h"
#include "dbgout/runtime_env.h"

char *trace_time_string() {
    static thread_local char buffer[23];
    memset(buffer, 0, sizeof buffer);
    struct timeval tv;
    if (gettimeofday(&tv, nullptr) != 0) {
        return buffer;
    }
    struct tm local;
    time_t seconds = tv.tv_sec;
    if (localtime_r(&seconds, &local) == nullptr) {
        return buffer;
    }
    // The buffer sizes are part of the format: a value too wide is cut, never overflows.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-truncation"
    snprintf(buffer, sizeof buffer, "%d-%02d-%02d %02d:%02d:%02d.%03d", local.tm_year + 1900,
             local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
             static_cast<int>(tv.tv_usec / 1000));
#pragma GCC diagnostic pop
    return buffer;
}

int trace_vwrite(TraceFile &trace, const char *fmt, va_list args) {
    std::lock_guard<std::mutex> guard(trace.lock);
    struct stat st;
    if (!trace.isOpen) {
        if (stat(trace.path.c_str(), &st) != 0) {
            trace.file = fopen(trace.path.c_str(), "w+");
        } else if (st.st_size > trace.limit) {
            // Overwrite the oldest text from the beginning instead of growing.
            trace.file = fopen(trace.path.c_str(), "r+");
        } else {
            trace.file = fopen(trace.path.c_str(), "a");
        }
        trace.isOpen = 1;
    }

    va_list toFile;
    va_copy(toFile, args);
    vprintf(fmt, args);
    if (trace.file) {
        vfprintf(trace.file, fmt, toFile);
    }
    va_end(toFile);

    fflush(stdout);
    long position = 0;
    if (trace.file) {
        fflush(trace.file);
        position = ftell(trace.file);
    }

    if (stat(trace.path.c_str(), &st) != 0) {
        // Removed while open: carry on in a new file. The old handle only holds the
        // unlinked file now, so it is closed rather than leaked.
        if (trace.file) {
            fclose(trace.file);
        }
        trace.file = fopen(trace.path.c_str(), "w+");
        fprintf(stderr, "DBG_ERR:%s %s[%04d] stat ERR\n", "src/dbgout", "traceout", 100);
        fflush(stderr);
        return 0;
    }
    if (position > trace.limit) {
        if (trace.file) {
            fclose(trace.file);
        }
        trace.file = nullptr;
        trace.isOpen = 0;
    }
    return 0;
}

int traceout(const char *fmt, ...) {
    static TraceFile trace{runtime_path("qmt_autoframe.log")};
    va_list args;
    va_start(args, fmt);
    trace_vwrite(trace, fmt, args);
    va_end(args);
    return 0;
}
