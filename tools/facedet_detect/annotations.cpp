#include "annotations.h"

#include <sstream>

namespace {

std::string face_key(const std::string &image, int x, int y, int w, int h) {
    std::ostringstream key;
    key << image << ' ' << x << ' ' << y << ' ' << w << ' ' << h;
    return key.str();
}

std::string line_error(const std::string &name, int lineNo, const char *expected) {
    return name + ":" + std::to_string(lineNo) + ": expected '" + expected + "'";
}

}  // namespace

bool read_annotations(std::istream &in, const std::string &name, AnnotatedFaces &faces,
                      std::vector<std::string> &order, std::string *error) {
    std::string line;
    int lineNo = 0;
    while (std::getline(in, line)) {
        ++lineNo;
        if (line.empty()) {
            continue;
        }
        std::istringstream fields(line);
        std::string image;
        int x, y, w, h;
        if (!(fields >> image >> x >> y >> w >> h)) {
            *error = line_error(name, lineNo, "image x y w h");
            return false;
        }
        if (faces.find(image) == faces.end()) {
            order.push_back(image);
        }
        faces[image].push_back({{double(x), double(y), double(w), double(h)}, false});
    }
    return true;
}

bool apply_attributes(std::istream &in, const std::string &name, AnnotatedFaces &faces, std::string *error) {
    std::map<std::string, int> invalidKeys;
    std::string line;
    int lineNo = 0;
    while (std::getline(in, line)) {
        ++lineNo;
        if (line.empty()) {
            continue;
        }
        std::istringstream fields(line);
        std::string image;
        int x, y, w, h, blur, expression, illumination, invalid;
        if (!(fields >> image >> x >> y >> w >> h >> blur >> expression >> illumination >> invalid)) {
            *error = line_error(name, lineNo, "image x y w h blur expression illumination invalid ...");
            return false;
        }
        if (invalid != 0) {
            ++invalidKeys[face_key(image, x, y, w, h)];
        }
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
