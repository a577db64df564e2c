#include "annotations.h"

#include <sstream>

namespace {

std::string face_key(const std::string &image, int x, int y, int w, int h) {
    std::ostringstream key;
    key << image << ' ' << x << ' ' << y << ' ' << w << ' ' << h;
    return key.str();
}

// Hands every non-empty line to `parse`; the first line it refuses ends the
// reading with an error naming the file, the line and the fields expected.
template <typename Parse>
bool for_each_line(std::istream &in, const std::string &name, const char *expected, std::string *error,
                   Parse parse) {
    std::string line;
    for (int lineNo = 1; std::getline(in, line); ++lineNo) {
        std::istringstream fields(line);
        if (!line.empty() && !parse(fields)) {
            *error = name + ":" + std::to_string(lineNo) + ": expected '" + expected + "'";
            return false;
        }
    }
    return true;
}

}  // namespace

bool read_annotations(std::istream &in, const std::string &name, AnnotatedFaces &faces,
                      std::vector<std::string> &order, std::string *error) {
    return for_each_line(in, name, "image x y w h", error, [&](std::istringstream &fields) {
        std::string image;
        int x, y, w, h;
        if (!(fields >> image >> x >> y >> w >> h)) {
            return false;
        }
        if (faces.find(image) == faces.end()) {
            order.push_back(image);
        }
        faces[image].push_back({{double(x), double(y), double(w), double(h)}, false});
        return true;
    });
}

bool apply_attributes(std::istream &in, const std::string &name, AnnotatedFaces &faces, std::string *error) {
    std::map<std::string, int> invalidKeys;
    const bool read = for_each_line(
        in, name, "image x y w h blur expression illumination invalid ...", error,
        [&](std::istringstream &fields) {
            std::string image;
            int x, y, w, h, blur, expression, illumination, invalid;
            if (!(fields >> image >> x >> y >> w >> h >> blur >> expression >> illumination >> invalid)) {
                return false;
            }
            if (invalid != 0) {
                ++invalidKeys[face_key(image, x, y, w, h)];
            }
            return true;
        });
    if (!read) {
        return false;
    }
    for (auto &entry : faces) {
        for (AnnotatedFace &face : entry.second) {
            auto it = invalidKeys.find(
                face_key(entry.first, int(face.box.x), int(face.box.y), int(face.box.w), int(face.box.h)));
            if (it != invalidKeys.end() && it->second > 0) {
                --it->second;
                face.invalid = true;
            }
        }
    }
    return true;
}
