// Lines for runs of dropped records.
#include "drop_report.h"

#include <cstdio>

namespace recorder {

bool DropReport::dropped(uint64_t count, const char *why, char *line, size_t size) {
    run_ += count;
    total_ += count;
    if (inRun_) {
        return false;
    }
    inRun_ = true;
    snprintf(line, size, "faceDet recorder: dropping records: %s\n", why);
    return true;
}

bool DropReport::written(char *line, size_t size) {
    return end_run("faceDet recorder: recording again after dropping %llu records\n", line, size);
}

bool DropReport::finish(char *line, size_t size) {
    return end_run("faceDet recorder: %llu records dropped until the end\n", line, size);
}

bool DropReport::end_run(const char *format, char *line, size_t size) {
    if (!inRun_) {
        return false;
    }
    snprintf(line, size, format, static_cast<unsigned long long>(run_));
    inRun_ = false;
    run_ = 0;
    return true;
}

}  // namespace recorder
