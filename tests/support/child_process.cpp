#include "child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

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

    pid_ = fork();
    if (pid_ < 0) {
        throw std::runtime_error("fork failed");
    }
    if (pid_ == 0) {
        const int in = open("/dev/null", O_RDONLY);
        const int out = open(outPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int err = open(errPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (in < 0 || out < 0 || err < 0 || chdir(options.workDir.c_str()) != 0 || dup2(in, 0) < 0 ||
            dup2(out, 1) < 0 || dup2(err, 2) < 0) {
            _exit(127);
        }
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
    return eventually([&] { return out().find(text) != std::string::npos; }, timeout);
}

void ChildProcess::signal(int sig) const {
    kill(pid_, sig);
}

int ChildProcess::wait_exit(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    int status = 0;
    while (waitpid(pid_, &status, WNOHANG) != pid_) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    reaped_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::unique_ptr<ChildProcess> spawn(const std::string &program, std::vector<std::string> args,
                                    const std::string &workDir, std::map<std::string, std::string> env) {
    return std::make_unique<ChildProcess>(
        program, ChildProcess::Options{std::move(args), std::move(env), {}, workDir});
}

bool eventually(const std::function<bool()> &done, std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    bool held;
    while (!(held = done()) && std::chrono::steady_clock::now() <= end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return held;
}

size_t count_of(const std::string &haystack, const std::string &needle) {
    size_t count = 0;
    for (size_t at = haystack.find(needle); at != std::string::npos; at = haystack.find(needle, at + 1)) {
        ++count;
    }
    return count;
}
