#include "process_helpers.h"

std::unique_ptr<ChildProcess> spawn(const std::string &program, std::vector<std::string> args,
                                    const std::string &workDir, std::map<std::string, std::string> env) {
    ChildProcess::Options options;
    options.args = std::move(args);
    options.env = std::move(env);
    options.workDir = workDir;
    return std::make_unique<ChildProcess>(program, options);
}

size_t count_of(const std::string &haystack, const std::string &needle) {
    size_t count = 0;
    for (size_t at = haystack.find(needle); at != std::string::npos; at = haystack.find(needle, at + 1)) {
        ++count;
    }
    return count;
}
