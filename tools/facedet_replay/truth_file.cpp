#include "truth_file.h"

#include <cerrno>
#include <cstdlib>
#include <sstream>

namespace replay {
namespace {

const char *const kColumns[] = {"frame", "person", "x", "y", "w", "h"};
constexpr int kColumnCount = 6;

std::string trim(const std::string &s) {
    const size_t b = s.find_first_not_of(" \t\r");
    const size_t e = s.find_last_not_of(" \t\r");
    return b == std::string::npos ? "" : s.substr(b, e - b + 1);
}

std::vector<std::string> split(const std::string &line) {
    std::vector<std::string> fields;
    std::stringstream in(line);
    std::string field;
    while (std::getline(in, field, ',')) {
        fields.push_back(trim(field));
    }
    if (!line.empty() && line.back() == ',') {
        fields.push_back("");
    }
    return fields;
}

bool to_long(const std::string &text, long *value) {
    char *end = nullptr;
    errno = 0;
    const long v = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || errno != 0 || *end != '\0' || v > 1000000000L || v < -1000000000L) {
        return false;
    }
    *value = v;
    return true;
}

struct Parser {
    long sourceFrames;
    Truth truth;
    int columnOf[kColumnCount] = {-1, -1, -1, -1, -1, -1};  // field index of each known column
    size_t fieldCount = 0;
    bool haveHeader = false;
    int line = 0;
    std::string error;

    bool fail(const std::string &what) {
        error = "line " + std::to_string(line) + ": " + what;
        return false;
    }

    bool directive(const std::string &text) {
        const size_t eq = text.find('=');
        const std::string key = trim(text.substr(0, eq)), value = trim(text.substr(eq + 1));
        long n = 0;
        if (key == "size") {
            if (value != std::to_string(kFrameWidth) + "x" + std::to_string(kFrameHeight)) {
                return fail("boxes are in a " + value + " frame; only " + std::to_string(kFrameWidth) + "x" +
                            std::to_string(kFrameHeight) + " (the analysed frame) can be scored");
            }
        } else if (key == "frames" || key == "every") {
            if (!to_long(value, &n) || n < 1) {
                return fail("'" + key + "' wants a positive whole number, not '" + value + "'");
            }
            (key == "frames" ? truth.frames : truth.every) = n;
            if (key == "frames" && sourceFrames > 0 && n != sourceFrames) {
                return fail("the labels cover " + std::to_string(n) + " frames but the source has " +
                            std::to_string(sourceFrames));
            }
        } else {
            return true;  // any other comment
        }
        if (haveHeader) {
            return fail("'" + key + "=' must come before the header");
        }
        return true;
    }

    bool header(const std::string &text) {
        const std::vector<std::string> names = split(text);
        for (size_t i = 0; i < names.size(); ++i) {
            int known = -1;
            for (int c = 0; c < kColumnCount; ++c) {
                known = names[i] == kColumns[c] ? c : known;
            }
            if (known < 0) {
                return fail("unknown column '" + names[i] + "' (the header is frame,person,x,y,w,h)");
            }
            if (columnOf[known] >= 0) {
                return fail("column '" + names[i] + "' appears twice");
            }
            columnOf[known] = static_cast<int>(i);
        }
        for (int c = 0; c < kColumnCount; ++c) {
            if (columnOf[c] < 0) {
                return fail(std::string("no column '") + kColumns[c] +
                            "' (the header is frame,person,x,y,w,h)");
            }
        }
        fieldCount = names.size();
        haveHeader = true;
        return true;
    }

    bool row(const std::string &text) {
        const std::vector<std::string> fields = split(text);
        if (fields.size() != fieldCount) {
            return fail(std::to_string(fields.size()) + " fields where the header has " +
                        std::to_string(fieldCount));
        }
        long v[kColumnCount];
        for (int c = 0; c < kColumnCount; ++c) {
            if (!to_long(fields[columnOf[c]], &v[c])) {
                return fail(std::string(kColumns[c]) + " '" + fields[columnOf[c]] +
                            "' is not a whole number");
            }
        }
        TruthFace face;
        face.frame = v[0];
        face.person = static_cast<int>(v[1]);
        face.box = Box{static_cast<int>(v[2]), static_cast<int>(v[3]), static_cast<int>(v[4]),
                       static_cast<int>(v[5])};
        const Box &b = face.box;
        if (face.frame < 0 || v[1] < 0) {
            return fail("frame and person cannot be negative");
        }
        if (b.x < 0 || b.y < 0 || b.w <= 0 || b.h <= 0 || b.x + b.w > kFrameWidth ||
            b.y + b.h > kFrameHeight) {
            return fail("box " + std::to_string(b.x) + "," + std::to_string(b.y) + " " + std::to_string(b.w) +
                        "x" + std::to_string(b.h) + " is not inside the " + std::to_string(kFrameWidth) +
                        "x" + std::to_string(kFrameHeight) + " frame");
        }
        const long limit = truth.frames > 0 ? truth.frames : sourceFrames;
        if (limit > 0 && face.frame >= limit) {
            return fail("frame " + std::to_string(face.frame) + " is past the last labelled frame " +
                        std::to_string(limit - 1));
        }
        if (face.frame % truth.every != 0) {
            return fail("frame " + std::to_string(face.frame) +
                        " is not a multiple of every=" + std::to_string(truth.every));
        }
        if (!truth.faces.empty()) {
            const TruthFace &last = truth.faces.back();
            if (face.frame < last.frame) {
                return fail("frame " + std::to_string(face.frame) + " comes after frame " +
                            std::to_string(last.frame) + ": rows must be in frame order");
            }
            for (auto it = truth.faces.rbegin(); it != truth.faces.rend() && it->frame == face.frame; ++it) {
                if (it->person == face.person) {
                    return fail("person " + std::to_string(face.person) + " appears twice in frame " +
                                std::to_string(face.frame));
                }
            }
        }
        truth.faces.push_back(face);
        return true;
    }

    bool parse(const std::string &text) {
        std::stringstream in(text);
        std::string raw;
        while (std::getline(in, raw)) {
            ++line;
            const std::string s = trim(raw);
            if (s.empty()) {
                continue;
            }
            if (s[0] == '#') {
                const std::string body = trim(s.substr(1));
                if (body.find('=') != std::string::npos && !directive(body)) {
                    return false;
                }
                continue;
            }
            if (!(haveHeader ? row(s) : header(s))) {
                return false;
            }
        }
        if (!haveHeader) {
            line = 0;
            return fail("no header 'frame,person,x,y,w,h'");
        }
        return true;
    }
};

}  // namespace

bool parse_truth(const std::string &text, long sourceFrames, Truth *out, std::string *error) {
    Parser p{sourceFrames, {}, {-1, -1, -1, -1, -1, -1}, 0, false, 0, {}};
    if (!p.parse(text)) {
        *error = p.error;
        return false;
    }
    *out = std::move(p.truth);
    return true;
}

}  // namespace replay
