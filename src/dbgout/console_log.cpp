// The levelled colour console log.
#include <sys/time.h>

#include <cstring>
#include <ctime>

#include "dbgout/dbgout.h"

namespace {

const char *const kLevelNames[] = {"ERROR", "WARN", "INFO", "DEBUG"};

// The INFO format has a blank after the colon; scripts on the camera match it.
const char *const kLevelFormats[] = {
    "\033[1;31m%s[%s] [%s:%d] %s\n\033[0m",
    "\033[1;33m%s[%s] [%s:%d] %s\n\033[0m",
    "\033[1;34m%s[%s] [%s: %d] %s\n\033[0m",
    "\033[1;32m%s[%s] [%s:%d] %s\n\033[0m",
};

}  // namespace

void console_log(const char *file, int line, int level, const char *fmt, ...) {
    if (level > LOG_DEBUG || level < 0) {
        return;
    }
    char message[1024];
    memset(message, 0, sizeof message);
    va_list args;
    va_start(args, fmt);
    vsnprintf(message, sizeof message, fmt, args);
    va_end(args);

    const char *slash = strrchr(file, '/');
    const char *name = slash ? slash + 1 : file;

    time_t now = time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    // The buffer sizes are part of the format: a value too wide is cut, never overflows.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-truncation"
    char stamp[32];
    snprintf(stamp, sizeof stamp, "[%04d-%02d-%02d %02d:%02d:%02d:%03d] ", local.tm_year + 1900,
             local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
             static_cast<int>(tv.tv_usec / 1000));
#pragma GCC diagnostic pop

    printf(kLevelFormats[level], stamp, kLevelNames[level], name, line, message);
}
