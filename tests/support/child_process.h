// Runs a program (the real daemon) as a child with its own environment,
// collecting stdout and stderr into files so a test can read them at any time.
#ifndef FACEDET_TEST_CHILD_PROCESS_H
#define FACEDET_TEST_CHILD_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

class ChildProcess {
  public:
    struct Options {
        std::vector<std::string> args;           // argv[1..]
        std::map<std::string, std::string> env;  // added to (or replacing) the parent's
        std::vector<std::string> unsetEnv;       // removed from the parent's
        std::string workDir;                     // working directory; also holds the logs
    };

    ChildProcess(const std::string &program, const Options &options);
    ~ChildProcess();  // kills the child if it still runs
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    pid_t pid() const { return pid_; }
    std::string out() const;
    std::string err() const;

    // Waits until stdout contains `text` (true) or the time is up (false).
    bool wait_for_output(const std::string &text, std::chrono::milliseconds timeout) const;
    void signal(int sig) const;
    // The exit status (0..255), 128 + signal when killed by one, -1 on time-out.
    int wait_exit(std::chrono::milliseconds timeout);

  private:
    pid_t pid_ = -1;
    bool reaped_ = false;
    std::string outPath_;
    std::string errPath_;
};

// `program` with `args` in `workDir`, in the parent's environment plus `env`.
std::unique_ptr<ChildProcess> spawn(const std::string &program, std::vector<std::string> args,
                                    const std::string &workDir, std::map<std::string, std::string> env = {});

// Polls `done` every 10 ms until it holds (true) or `limit` passes (false).
bool eventually(const std::function<bool()> &done,
                std::chrono::milliseconds limit = std::chrono::seconds(10));

// Number of times `needle` occurs in `haystack`.
size_t count_of(const std::string &haystack, const std::string &needle);

#endif
