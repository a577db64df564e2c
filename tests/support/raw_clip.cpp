#include "raw_clip.h"

#include <fstream>
#include <vector>

void write_raw_clip(const std::string &path, int frames, int width, int height) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    const size_t luma = static_cast<size_t>(width) * height;
    std::vector<char> frame(luma * 3 / 2);
    for (int i = 0; i < frames; ++i) {
        std::fill(frame.begin(), frame.begin() + static_cast<long>(luma), static_cast<char>(i % 256));
        std::fill(frame.begin() + static_cast<long>(luma), frame.end(), static_cast<char>(128));
        out.write(frame.data(), static_cast<std::streamsize>(frame.size()));
    }
}
