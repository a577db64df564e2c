// Helpers shared by the auto-framing tests.
#ifndef FACEDET_AUTOFRAME_TEST_UTIL_H
#define FACEDET_AUTOFRAME_TEST_UTIL_H

#include <ostream>
#include <string>
#include <vector>

#include "faceDet/rect.h"

// gtest prints Rect_t through this when a comparison fails.
inline void PrintTo(const Rect_t &r, std::ostream *os) {
    *os << "[" << r.x << ", " << r.y << ", " << r.width << ", " << r.height << "]";
}

// The messages of the INFO lines of the console log in captured output, in
// order, without time stamp, colour and source.
inline std::vector<std::string> info_messages(const std::string &out) {
    std::vector<std::string> messages;
    const std::string tag = "[INFO] [faceDet: ";
    size_t pos = 0;
    while ((pos = out.find(tag, pos)) != std::string::npos) {
        const size_t start = out.find("] ", pos + tag.size()) + 2;
        const size_t end = out.find("\n\033[0m", start);
        messages.push_back(out.substr(start, end - start));
        pos = end;
    }
    return messages;
}

#endif
