/*
 * The daemon's two loggers besides plain printf lines.
 *
 * console_log prints one coloured, time-stamped line per call for the frame
 * loop and the move decision. traceout writes each message to the console and
 * to the trace file, which it keeps near 10 MiB by rewriting it from the
 * start. Lines of several threads may interleave, as on the camera, but the
 * trace file's handle is guarded: one thread closing it at the wrap while
 * another writes through it would be a use after free in a process that
 * runs for months.
 */
#ifndef FACEDET_DBGOUT_H
#define FACEDET_DBGOUT_H

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>

enum {
    LOG_ERROR = 0,
    LOG_WARN = 1,
    LOG_INFO = 2,
    LOG_DEBUG = 3,
};

// Bytes after which the trace file is rewritten from its start.
constexpr long kTraceFileLimit = 10485760;

void console_log(const char *file, int line, int level, const char *fmt, ...)
    __attribute__((format(printf, 4, 5)));

// A levelled line of the frame loop and auto framing: their source tag
// "src/faceDet" and the caller's line.
#define FD_LOG(level, ...) console_log("src/faceDet", __LINE__, (level), __VA_ARGS__)

// The wall-clock time stamp of trace lines, in a buffer reused by every call
// of the calling thread: a trace line formats it after the call returns, so a
// buffer shared by all threads could be rewritten under it.
char *trace_time_string();

int traceout(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// A trace line with the system's prefix "[time source +line function] ". Each
// message names its own line and function, so both are given.
#define TRACE_AT(source, line, function, format, ...) \
    traceout("[%s %s +%-4d %s] " format, trace_time_string(), (source), (line), (function), ##__VA_ARGS__)

// State of one wrapping trace file. The daemon has one, on the runtime trace
// path; tests make their own. Thread-safe through trace_vwrite: `lock` guards
// `file` and `isOpen` for the whole of each write.
struct TraceFile {
    explicit TraceFile(std::string tracePath, long wrapAt = kTraceFileLimit)
        : path(std::move(tracePath)), limit(wrapAt) {}
    const std::string path;
    const long limit;  // bytes after which the file is rewritten from its start
    std::mutex lock;
    FILE *file = nullptr;
    int isOpen = 0;
};

// traceout's work on explicit state: console, then file, then the wrap checks,
// all under the file's lock.
int trace_vwrite(TraceFile &trace, const char *fmt, va_list args);

#endif
