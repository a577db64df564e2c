// The console log's formats and the trace file's wrapping.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <regex>
#include <string>

#include <gtest/gtest.h>

#include "dbgout/dbgout.h"
#include "faceDet/runtime_env.h"
#include "output_capture.h"
#include "temp_dir.h"

namespace {

std::string console_line(int level, const char *file, int line, const char *message) {
    OutputCapture capture;
    console_log(file, line, level, "%s", message);
    return capture.finish();
}

int trace_write(TraceFile &trace, const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    int ret = trace_vwrite(trace, fmt, args);
    va_end(args);
    return ret;
}

long file_size(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : -1;
}

const char *const kStamp = R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d:\d{3}\] )";

}  // namespace

TEST(ConsoleLog, EachLevelHasItsColourNameAndSeparator) {
    struct Case {
        int level;
        const char *colour;
        const char *name;
        const char *separator;
    } cases[] = {
        {LOG_ERROR, "1;31", "ERROR", ":"},
        {LOG_WARN, "1;33", "WARN", ":"},
        {LOG_INFO, "1;34", "INFO", ": "},  // the one format with a blank
        {LOG_DEBUG, "1;32", "DEBUG", ":"},
    };
    for (const Case &c : cases) {
        std::string out = console_line(c.level, "src/faceDet", 42, "hello 7");
        std::regex expected(std::string("\\x1b\\[") + c.colour + "m" + kStamp + "\\[" + c.name +
                            "\\] \\[faceDet" + c.separator + "42\\] hello 7\n\\x1b\\[0m");
        EXPECT_TRUE(std::regex_match(out, expected)) << "level " << c.level << ": " << out;
    }
    EXPECT_EQ(console_line(4, "src/faceDet", 1, "x") + console_line(-1, "src/faceDet", 1, "x"), "");
    EXPECT_NE(console_line(LOG_ERROR, "plain", 3, "m").find("[plain:3]"), std::string::npos);
}

TEST(ConsoleLog, LongMessagesAreCutAt1023AndStillEndTheLine) {
    std::string message(2000, 'x');
    std::string out = console_line(LOG_ERROR, "f", 1, message.c_str());
    const std::string tail = std::string(1023, 'x') + "\n\x1b[0m";
    ASSERT_GE(out.size(), tail.size());
    EXPECT_EQ(out.substr(out.size() - tail.size()), tail);
    EXPECT_EQ(out.find(std::string(1024, 'x')), std::string::npos);
}

TEST(TraceTimeString, IsDateTimeCutToItsTwentyThreeByteBuffer) {
    // 22 characters and the terminator: the last millisecond digit never fits.
    std::string stamp = trace_time_string();
    EXPECT_TRUE(std::regex_match(stamp, std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d\d)"))) << stamp;
}

TEST(TraceFile, WritesToConsoleAndAppendsToTheFile) {
    TempDir dir;
    TraceFile trace{dir.file("trace.log")};
    write_file(trace.path, "old\n");
    OutputCapture capture;
    trace_write(trace, "[%s %s +%-4d %s] hello %d\n", "T", "src/net_communication", 301, "fn", 5);
    trace_write(trace, "second\n");
    EXPECT_EQ(capture.finish(), "[T src/net_communication +301  fn] hello 5\nsecond\n");
    EXPECT_EQ(read_file(trace.path), "old\n[T src/net_communication +301  fn] hello 5\nsecond\n");
}

TEST(TraceFile, OverTheLimitAtStartIsOverwrittenFromTheBeginning) {
    TempDir dir;
    TraceFile trace{dir.file("trace.log")};
    ASSERT_EQ(truncate((write_file(trace.path, "zzzzzz"), trace.path.c_str()), kTraceFileLimit + 1), 0);
    OutputCapture capture;
    trace_write(trace, "abc");
    capture.finish();
    EXPECT_EQ(file_size(trace.path), kTraceFileLimit + 1);
    EXPECT_EQ(read_file(trace.path).substr(0, 6), "abczzz");
}

TEST(TraceFile, PassingTheLimitRestartsAtOffsetZeroOnTheNextCall) {
    TempDir dir;
    TraceFile trace{dir.file("trace.log")};
    ASSERT_EQ(truncate((write_file(trace.path, "q"), trace.path.c_str()), kTraceFileLimit), 0);
    OutputCapture capture;
    trace_write(trace, "0123456789");  // appended: the position is now past the limit
    EXPECT_EQ(trace.isOpen, 0);
    trace_write(trace, "XY");
    capture.finish();
    std::string content = read_file(trace.path);
    EXPECT_EQ(static_cast<long>(content.size()), kTraceFileLimit + 10);
    EXPECT_EQ(content.substr(0, 2), "XY");
    EXPECT_EQ(content.substr(content.size() - 10), "0123456789");
}

TEST(TraceFile, DeletedWhileOpenReportsOnStderrAndContinuesInANewFile) {
    TempDir dir;
    TraceFile trace{dir.file("trace.log")};
    OutputCapture out;
    trace_write(trace, "first\n");
    ASSERT_EQ(unlink(trace.path.c_str()), 0);
    OutputCapture err(2);
    trace_write(trace, "lost\n");
    EXPECT_EQ(err.finish(), "DBG_ERR:src/dbgout traceout[0100] stat ERR\n");
    trace_write(trace, "after\n");
    EXPECT_EQ(out.finish(), "first\nlost\nafter\n");
    EXPECT_EQ(read_file(trace.path), "after\n");
}

TEST(TraceOut, UsesTheRuntimeDirectory) {
    // Each test case runs in its own process under ctest, so this is the first
    // read of the runtime directory here.
    TempDir dir;
    setenv("FACEDET_RUNTIME_DIR", dir.path().c_str(), 1);
    ASSERT_EQ(runtime_dir(), dir.path()) << "runtime directory was read before this test";
    OutputCapture capture;
    EXPECT_EQ(traceout("[%s %s +%-4d %s] select fail!\n\n", "t", "src/net_communication", 633, "fn"), 0);
    capture.finish();
    EXPECT_EQ(read_file(dir.file("qmt_autoframe.log")),
              "[t src/net_communication +633  fn] select fail!\n\n");
}
