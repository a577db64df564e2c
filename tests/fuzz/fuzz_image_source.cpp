// The host platform's still-image source on bytes of any content: decoding
// is OpenCV's, but the scaling to the port, the colour conversion and the
// NV12 packing of whatever it returns (any size, grey, alpha, 16 bits) are
// ours. The first byte picks the port size, the rest is the image file.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "frame_source.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) {
        return 0;
    }
    const std::vector<uint8_t> bytes(data + 1, data + size);
    std::string error;
    std::unique_ptr<host::FrameSource> source = host::open_image_bytes(bytes, &error);
    if (source) {
        // From tiny ports to wider than the analysis size; sides even as NV12 needs.
        const int width = 2 + 2 * (data[0] & 7) * (data[0] & 0x80 ? 30 : 1);
        const int height = 2 + 2 * (data[0] >> 3 & 7) * (data[0] & 0x40 ? 20 : 1);
        std::vector<uint8_t> frame(static_cast<size_t>(width) * height * 3 / 2);
        for (int pass = 0; pass < 2 && source->next(width, height); ++pass) {
            source->render(width, height, frame.data());
            source->rewind();
        }
    }
    return 0;
}
