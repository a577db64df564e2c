// facedet_detect's annotation and attribute readers on text of any content:
// the input up to the first NUL is the annotations, the rest the attributes.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>

#include "annotations.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const char *text = reinterpret_cast<const char *>(data);
    const void *nul = std::memchr(text, '\0', size);
    const size_t split = nul ? static_cast<size_t>(static_cast<const char *>(nul) - text) : size;
    std::istringstream faceLines(std::string(text, split));
    std::istringstream attributeLines(split < size ? std::string(text + split + 1, size - split - 1) : "");

    AnnotatedFaces faces;
    std::vector<std::string> order;
    std::string error;
    if (read_annotations(faceLines, "fuzz", faces, order, &error)) {
        apply_attributes(attributeLines, "fuzz", faces, &error);
    }
    // Every image read is listed once, in order.
    if (order.size() != faces.size()) {
        __builtin_trap();
    }
    return 0;
}
