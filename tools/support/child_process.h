// Runs a program as a child process with its own environment and working
// directory, its stdout and stderr in files that can be read at any time, and
// waits for it, signals it or stops it within time limits. facedet_replay
// drives the daemon and its peers with it, and the tests drive the real
// binaries the same way.
#ifndef FACEDET_TOOLS_CHILD_PROCESS_H
#define FACEDET_TOOLS_CHILD_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

class ChildProcess {
  public:
    struct Options {
        std::vector<std::string> args;           // argv[1..]
        std::map<std::string, std::string> env;  // added to (or replacing) the parent's
        std::vector<std::string> unsetEnv;       // removed from the parent's
        std::string workDir;                     // working directory; holds the output files unless named
        std::string outPath;                     // stdout; empty: workDir/childN.out
        std::string errPath;                     // stderr; empty: workDir/childN.err
    };

    // Throws std::runtime_error when no process can be made. A program that
    // cannot be run, or an output file or working directory that cannot be
    // used, ends the child with status 127.
    ChildProcess(const std::string &program, const Options &options);
    ~ChildProcess();  // kills the child if it still runs
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    pid_t pid() const { return pid_; }
    std::string out() const;
    std::string err() const;

    // Waits until stdout contains `text` (true) or the time is up (false).
    bool wait_for_output(const std::string &text, std::chrono::milliseconds timeout) const;
    // Nothing once the child has been reaped: its pid may belong to another process by then.
    void signal(int sig) const;
    // True once the child has exited; status() then says how.
    bool poll();
    // The exit status (0..255), 128 + signal when killed by one, -1 while it runs.
    int status() const { return status_; }
    // The exit status as status(), or -1 when the child still runs after `timeout`.
    int wait_exit(std::chrono::milliseconds timeout);
    // SIGTERM, then SIGKILL after `grace`; true when SIGTERM was enough.
    bool stop(std::chrono::milliseconds grace);

  private:
    pid_t pid_ = -1;
    int status_ = -1;
    std::string outPath_;
    std::string errPath_;
};

// The whole of a file; empty when it cannot be read (a log not written yet).
std::string read_text(const std::string &path);

// Polls `done` every 10 ms until it holds (true) or `limit` passes (false).
bool eventually(const std::function<bool()> &done,
                std::chrono::milliseconds limit = std::chrono::seconds(10));

#endif
