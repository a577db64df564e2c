#include "child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

extern char **environ;

std::string read_text(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

ChildProcess::ChildProcess(const std::string &program, const Options &options) {
    static std::atomic<int> counter{0};
    const std::string stem = options.workDir + "/child" + std::to_string(++counter);
    outPath_ = options.outPath.empty() ? stem + ".out" : options.outPath;
    errPath_ = options.errPath.empty() ? stem + ".err" : options.errPath;

    // Everything the child needs is made here: between fork and exec only
    // async-signal-safe calls are allowed, as the parent may run threads.
    std::map<std::string, std::string> env;
    for (char **e = environ; *e; ++e) {
        const std::string entry(*e);
        const size_t eq = entry.find('=');
        env[entry.substr(0, eq)] = eq == std::string::npos ? "" : entry.substr(eq + 1);
    }
    for (const auto &name : options.unsetEnv) {
        env.erase(name);
    }
    for (const auto &[name, value] : options.env) {
        env[name] = value;
    }
    std::vector<std::string> strings{program};
    strings.insert(strings.end(), options.args.begin(), options.args.end());
    const size_t argc = strings.size();
    for (const auto &[name, value] : env) {
        strings.push_back(name + "=" + value);
    }
    std::vector<char *> argv, envp;
    for (size_t i = 0; i < strings.size(); ++i) {
        (i < argc ? argv : envp).push_back(strings[i].data());
    }
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    const char *workDir = options.workDir.empty() ? nullptr : options.workDir.c_str();

    // Buffered output of the parent would otherwise be written twice.
    fflush(stdout);
    fflush(stderr);
    pid_ = fork();
    if (pid_ < 0) {
        throw std::runtime_error("cannot start " + program + ": fork failed");
    }
    if (pid_ == 0) {
        const int in = open("/dev/null", O_RDONLY);
        const int out = open(outPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int err = open(errPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (in < 0 || out < 0 || err < 0 || (workDir != nullptr && chdir(workDir) != 0) || dup2(in, 0) < 0 ||
            dup2(out, 1) < 0 || dup2(err, 2) < 0) {
            _exit(127);
        }
        execve(program.c_str(), argv.data(), envp.data());
        _exit(127);
    }
}

ChildProcess::~ChildProcess() {
    if (!poll()) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

std::string ChildProcess::out() const {
    return read_text(outPath_);
}

std::string ChildProcess::err() const {
    return read_text(errPath_);
}

bool ChildProcess::wait_for_output(const std::string &text, std::chrono::milliseconds timeout) const {
    return eventually([&] { return out().find(text) != std::string::npos; }, timeout);
}

void ChildProcess::signal(int sig) const {
    if (status_ < 0) {
        kill(pid_, sig);
    }
}

bool ChildProcess::poll() {
    if (status_ >= 0) {
        return true;
    }
    int raw = 0;
    if (waitpid(pid_, &raw, WNOHANG) != pid_) {
        return false;
    }
    status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
    return true;
}

int ChildProcess::wait_exit(std::chrono::milliseconds timeout) {
    eventually([this] { return poll(); }, timeout);
    return status_;
}

bool ChildProcess::stop(std::chrono::milliseconds grace) {
    if (poll()) {
        return true;
    }
    signal(SIGTERM);
    if (wait_exit(grace) >= 0) {
        return true;
    }
    signal(SIGKILL);
    wait_exit(std::chrono::seconds(5));
    return false;
}

bool eventually(const std::function<bool()> &done, std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    bool held;
    while (!(held = done()) && std::chrono::steady_clock::now() <= end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return held;
}
