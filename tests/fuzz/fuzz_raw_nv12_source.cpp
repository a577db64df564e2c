// The host platform's raw NV12 source on a file of any content and length,
// and its fault and pace settings from the environment.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "frame_source.h"
#include "host_config.h"

namespace {

std::string clip_path() {
    static const std::string path = [] {
        char name[] = "/tmp/facedet-fuzz-XXXXXX";
        const int fd = mkstemp(name);
        close(fd);
        unlink(name);
        return std::string(name) + ".nv12";
    }();
    return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // The first bytes, up to a newline, are a setting; the rest is the clip.
    size_t split = 0;
    while (split < size && split < 64 && data[split] != '\n') {
        ++split;
    }
    const std::string setting(reinterpret_cast<const char *>(data), split);
    host::Faults faults;
    host::Pace pace;
    std::string error;
    host::parse_faults(setting, &faults, &error);
    host::parse_pace(setting, &pace, &error);
    double frameCostMs = 0;
    if (host::parse_frame_cost(setting, &frameCostMs, &error) && !(frameCostMs > 0 && frameCostMs <= 10000)) {
        abort();  // a cost the platform accepted must be one it can charge
    }

    const size_t start = split < size ? split + 1 : size;
    FILE *file = fopen(clip_path().c_str(), "wb");
    if (file == nullptr) {
        abort();
    }
    fwrite(data + start, 1, size - start, file);
    fclose(file);
    // Small ports keep a frame a few bytes long, so short inputs hold several.
    const int width = 2 + 2 * (setting.size() % 4);
    const int height = 2 + 2 * (split % 3);
    std::unique_ptr<host::FrameSource> source = host::open_raw_nv12_source(clip_path(), &error);
    if (source) {
        std::vector<uint8_t> frame(static_cast<size_t>(width) * height * 3 / 2);
        for (int pass = 0; pass < 2; ++pass) {
            for (int i = 0; i < 8 && source->next(width, height); ++i) {
                source->render(width, height, frame.data());
            }
            source->rewind();
        }
    }
    unlink(clip_path().c_str());
    return 0;
}
