// The gamma record as the peer leaves it in the segment: every byte arbitrary
// (mode, strength, isuse, the curve and the statistics), over a frame's
// histogram taken from the rest of the input.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "faceDet/auto_gamma.h"
#include "faceDet/gamma_record.h"

namespace {

GammaRecord g_peer;

int read_record(void *record) {
    memcpy(record, &g_peer, sizeof g_peer);
    return 1;
}
int write_record(const void *record) {
    memcpy(&g_peer, record, sizeof g_peer);
    return 1;
}
const GammaIo kFuzzIo = {read_record, write_record};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < sizeof(GammaRecord)) {
        return 0;
    }
    memcpy(&g_peer, data, sizeof g_peer);
    data += sizeof g_peer;
    size -= sizeof g_peer;
    // Histogram of a 416x234 frame: the bins hold pixel counts that sum to the frame.
    float hist[kGammaLevels] = {};
    constexpr int kPixels = 416 * 234;
    int left = kPixels;
    for (size_t i = 0; i < size && left > 0; i += 2) {
        const int level = data[i];
        const int count = i + 1 < size ? (data[i + 1] * 64) % (left + 1) : left;
        hist[level] += static_cast<float>(count);
        left -= count;
    }
    hist[0] += static_cast<float>(left);
    int32_t cur = 0, pre = 0;
    uint8_t reverse = 0;
    int32_t applied[kGammaLevels] = {}, fresh[kGammaLevels] = {};
    GammaState state{cur, pre, reverse, applied, fresh};
    GammaRecord copy{};
    float again[kGammaLevels];
    memcpy(again, hist, sizeof hist);
    auto_gamma_step(state, copy, hist, kFuzzIo);
    auto_gamma_step(state, copy, again, kFuzzIo);  // the answer read back, as on the next frame
    return 0;
}
