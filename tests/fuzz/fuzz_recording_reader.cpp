// A recording as it may come back from a camera: any bytes, read record by
// record as the replay reads them, with frames of 8x2 so that whole records
// fit in the fuzzer's inputs.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "recording/reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) {
        return 0;
    }
    constexpr recording::FrameGeometry kTiny = {8, 2, recording::kPixelFormatNv12, 16, 8};
    std::FILE *stream = fmemopen(const_cast<uint8_t *>(data), size, "rb");
    std::string error;
    std::unique_ptr<recording::Reader> reader = recording::Reader::open_stream(stream, "fuzz", kTiny, &error);
    if (!reader) {
        return 0;
    }
    uint64_t count = 0;
    for (recording::Record record; reader->next(&record); ++count) {
        if (record.index != count) {
            abort();  // records come whole and in order, or not at all
        }
    }
    if (reader->records() != count || (reader->damaged() ? reader->cut() == 0 : reader->cut() != 0)) {
        abort();
    }
    reader->summary();
    return 0;
}
