// Line handling shared by the readers of our logs.
#ifndef FACEDET_TOOLS_LOG_TEXT_H
#define FACEDET_TOOLS_LOG_TEXT_H

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace logs {

// Whole lines of `text`; a last line without its line end is reported apart,
// because a process killed mid-write leaves half a line there.
inline std::vector<std::string> whole_lines(const std::string &text, bool *cut) {
    std::vector<std::string> lines;
    size_t at = 0;
    while (at < text.size()) {
        const size_t end = text.find('\n', at);
        if (end == std::string::npos) {
            if (cut) {
                *cut = true;
            }
            break;
        }
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

// The integer after `key` in `line`, or false.
inline bool int_after(const std::string &line, const char *key, int *value) {
    const size_t at = line.find(key);
    if (at == std::string::npos) {
        return false;
    }
    const char *start = line.c_str() + at + strlen(key);
    char *end = nullptr;
    const long v = strtol(start, &end, 10);
    if (end == start) {
        return false;
    }
    *value = static_cast<int>(v);
    return true;
}

}  // namespace logs

#endif
