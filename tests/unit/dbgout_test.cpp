// The console log's formats and the trace file's appending, wrapping and
// sharing between threads.
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "dbgout/dbgout.h"
#include "output_capture.h"
#include "process_helpers.h"
#include "temp_dir.h"

namespace {

std::string console_line(int level, const char *file, int line, const char *message) {
    OutputCapture capture;
    console_log(file, line, level, "%s", message);
    return capture.finish();
}

void trace_write(TraceFile &trace, const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    trace_vwrite(trace, fmt, args);
    va_end(args);
}

}  // namespace

TEST(ConsoleLog, EachLevelHasItsColourNameAndSeparatorAndLongMessagesAreCut) {
    const char *const cases[][4] = {
        {"1;31", "ERROR", ":"}, {"1;33", "WARN", ":"}, {"1;34", "INFO", ": "}, {"1;32", "DEBUG", ":"}};
    for (int level = LOG_ERROR; level <= LOG_DEBUG; ++level) {
        const char *const *c = cases[level - LOG_ERROR];
        const std::string out = console_line(level, "src/faceDet", 42, "hello 7");
        const std::regex expected(std::string("\\x1b\\[") + c[0] +
                                  R"(m\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d:\d{3}\] \[)" + c[1] +
                                  "\\] \\[faceDet" + c[2] + "42\\] hello 7\n\\x1b\\[0m");
        EXPECT_TRUE(std::regex_match(out, expected)) << "level " << level << ": " << out;
    }
    EXPECT_EQ(console_line(4, "src/faceDet", 1, "x") + console_line(-1, "src/faceDet", 1, "x"), "");
    EXPECT_NE(console_line(LOG_ERROR, "plain", 3, "m").find("[plain:3]"), std::string::npos);
    // 1023 bytes of the message, and the line still ends.
    const std::string out = console_line(LOG_ERROR, "f", 1, std::string(2000, 'x').c_str());
    EXPECT_EQ(out.substr(out.find('x')), std::string(1023, 'x') + "\n\x1b[0m");
}

TEST(TraceFile, AppendsAndPassingTheLimitRestartsAtOffsetZeroOnTheNextCall) {
    TempDir dir;
    TraceFile trace{dir.file("trace.log")};
    write_file(trace.path, "old\n");
    OutputCapture capture;
    trace_write(trace, "[%s %s +%-4d %s] hello %d\n", "T", "src/net_communication", 301, "fn", 5);
    EXPECT_EQ(capture.finish(), "[T src/net_communication +301  fn] hello 5\n");
    EXPECT_EQ(read_file(trace.path), "old\n[T src/net_communication +301  fn] hello 5\n");

    TraceFile full{dir.file("full.log")};
    ASSERT_EQ(truncate((write_file(full.path, "q"), full.path.c_str()), kTraceFileLimit), 0);
    OutputCapture quiet;
    trace_write(full, "0123456789");  // appended: the position is now past the limit
    EXPECT_EQ(full.isOpen, 0);
    trace_write(full, "XY");
    quiet.finish();
    const std::string content = read_file(full.path);
    EXPECT_EQ(content.substr(0, 2) + content.substr(kTraceFileLimit), "XY0123456789");  // same size
}

// Threads write while the file wraps and is removed under them: no handle is
// closed while another thread writes through it (the sanitizer builds check
// the memory), and the file ends up whole lines within its limit.
TEST(TraceFile, ThreadsWriteAcrossWrapsAndRemovals) {
    TempDir dir;
    TraceFile trace(dir.file("threads.log"), 4096);
    OutputCapture quiet;
    OutputCapture errors(2);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&trace, t] {
            for (int i = 0; i < 500; ++i) {
                trace_write(trace, "[%s] thread %d line %03d\n", trace_time_string(), t, i);
            }
        });
    }
    threads.emplace_back([&trace] {
        for (int i = 0; i < 40; ++i) {
            unlink(trace.path.c_str());
            usleep(500);
        }
    });
    for (std::thread &t : threads) {
        t.join();
    }
    // The first notices a removal that came last; the second lands in the file.
    trace_write(trace, "last\n");
    trace_write(trace, "last\n");
    quiet.finish();
    EXPECT_GT(count_of(errors.finish(), "DBG_ERR:src/dbgout traceout[0100] stat ERR\n"), 0u);
    struct stat st;
    ASSERT_EQ(stat(trace.path.c_str(), &st), 0);
    EXPECT_LT(st.st_size, 4096 + 64);
    const std::string text = read_file(trace.path);
    EXPECT_TRUE(std::regex_search(text, std::regex(R"(^(\[[-0-9 :.]+\] thread \d line \d{3}\n|last\n))")))
        << text.substr(0, 200);
}

// The lock is what keeps the handle alive: a writer waits while it is held.
TEST(TraceFile, AWriterWaitsWhileTheFileIsHeld) {
    TempDir dir;
    TraceFile trace(dir.file("held.log"));
    OutputCapture quiet;
    std::unique_lock<std::mutex> held(trace.lock);
    std::atomic<bool> wrote{false};
    std::thread writer([&] {
        trace_write(trace, "x\n");
        wrote = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(wrote) << "wrote through the file while another thread held it";
    held.unlock();
    writer.join();
    EXPECT_TRUE(wrote);
    quiet.finish();
}
