#include "child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "temp_dir.h"

extern char **environ;

ChildProcess::ChildProcess(const std::string &program, const Options &options) {
    static int counter = 0;
    const std::string stem = options.workDir + "/child" + std::to_string(++counter);
    outPath_ = stem + ".out";
    errPath_ = stem + ".err";

    std::map<std::string, std::string> env;
    for (char **e = environ; *e; ++e) {
        std::string entry(*e);
        size_t eq = entry.find('=');
        if (eq != std::string::npos) {
            env[entry.substr(0, eq)] = entry.substr(eq + 1);
        }
    }
    for (const auto &name : options.unsetEnv) {
        env.erase(name);
    }
    for (const auto &[name, value] : options.env) {
        env[name] = value;
    }
    std::vector<std::string> envStrings;
    for (const auto &[name, value] : env) {
        envStrings.push_back(name + "=" + value);
    }
    std::vector<char *> envp;
    for (auto &s : envStrings) {
        envp.push_back(s.data());
    }
    envp.push_back(nullptr);
    std::vector<std::string> argStrings{program};
    argStrings.insert(argStrings.end(), options.args.begin(), options.args.end());
    std::vector<char *> argv;
    for (auto &s : argStrings) {
        argv.push_back(s.data());
    }
    argv.push_back(nullptr);

    pid_ = fork();
    if (pid_ < 0) {
        throw std::runtime_error("fork failed");
    }
    if (pid_ == 0) {
        int out = open(outPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        int err = open(errPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        int in = open("/dev/null", O_RDONLY);
        if (out < 0 || err < 0 || in < 0 || chdir(options.workDir.c_str()) != 0) {
            _exit(127);
        }
        dup2(in, 0);
        dup2(out, 1);
        dup2(err, 2);
        execve(program.c_str(), argv.data(), envp.data());
        _exit(127);
    }
}

ChildProcess::~ChildProcess() {
    if (!reaped_ && pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

std::string ChildProcess::out() const {
    return read_file(outPath_);
}
std::string ChildProcess::err() const {
    return read_file(errPath_);
}

bool ChildProcess::wait_for_output(const std::string &text, std::chrono::milliseconds timeout) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        if (out().find(text) != std::string::npos) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return out().find(text) != std::string::npos;
}

void ChildProcess::signal(int sig) const {
    kill(pid_, sig);
}

int ChildProcess::wait_exit(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    int status = 0;
    while (true) {
        pid_t done = waitpid(pid_, &status, WNOHANG);
        if (done == pid_) {
            reaped_ = true;
            if (WIFEXITED(status)) {
                return WEXITSTATUS(status);
            }
            return 128 + WTERMSIG(status);
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

size_t count_of(const std::string &haystack, const std::string &needle) {
    size_t count = 0;
    for (size_t at = haystack.find(needle); at != std::string::npos; at = haystack.find(needle, at + 1)) {
        ++count;
    }
    return count;
}
