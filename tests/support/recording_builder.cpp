#include "recording_builder.h"

#include <sys/stat.h>

#include <algorithm>
#include <fstream>

using namespace recording;

namespace {
constexpr uint64_t kStartMonotonicUs = 5000000000ull;  // the clock of a camera up for some while
}

RecordingBuilder::RecordingBuilder(uint16_t version, const FrameGeometry &frame) {
    header_.version = version;
    header_.frame = frame;
    header_.startMonotonicUs = kStartMonotonicUs;
    header_.pid = 4242;
    file_.resize(kFileHeaderBytes);
    encode_file_header(header_, file_.data());
}

void RecordingBuilder::finish_record(const std::vector<uint8_t> &record) {
    file_.insert(file_.end(), record.begin(), record.end());
    ends_.push_back(file_.size());
    ++next_;
}

RecordingBuilder &RecordingBuilder::frame(uint64_t timeUs, const std::vector<uint8_t> &nv12, uint8_t fill) {
    const size_t planes = header_.frame.lumaBytes + header_.frame.chromaBytes;
    std::vector<uint8_t> record(kRecordHeadBytes + kFrameFieldBytes);
    encode_record_head({Kind::Frame, next_, kStartMonotonicUs + timeUs, uint32_t(kFrameFieldBytes + planes)},
                       record.data());
    FrameFields f;
    f.pts = timeUs;
    f.width = header_.frame.width;
    f.height = header_.frame.height;
    f.stride[0] = f.stride[1] = header_.frame.width;
    encode_frame_fields(f, record.data() + kRecordHeadBytes);
    if (nv12.empty()) {
        record.resize(record.size() + planes, fill);
    } else {
        record.insert(record.end(), nv12.begin(), nv12.begin() + static_cast<long>(planes));
    }
    const uint32_t crc = crc32(0, record.data(), record.size());
    for (int i = 0; i < 4; ++i) {
        record.push_back(static_cast<uint8_t>(crc >> (8 * i)));
    }
    finish_record(record);
    return *this;
}

RecordingBuilder &RecordingBuilder::datagram(Kind kind, uint64_t timeUs, const std::vector<uint8_t> &bytes) {
    uint8_t fields[kDatagramFieldBytes];
    const uint32_t n = static_cast<uint32_t>(bytes.size());
    encode_datagram_fields({static_cast<int32_t>(n), 0, n, n}, fields);
    std::vector<uint8_t> record(kRecordHeadBytes + kDatagramFieldBytes + n + kRecordCrcBytes);
    record.resize(encode_small_record({kind, next_, kStartMonotonicUs + timeUs, 0}, fields, sizeof fields,
                                      bytes.data(), n, record.data(), record.size()));
    finish_record(record);
    return *this;
}

RecordingBuilder &RecordingBuilder::end() {
    uint8_t fields[kEndFieldBytes];
    encode_end_fields({next_, 0}, fields);
    std::vector<uint8_t> record(kRecordHeadBytes + kEndFieldBytes + kRecordCrcBytes);
    record.resize(encode_small_record({Kind::End, next_, kStartMonotonicUs, 0}, fields, sizeof fields,
                                      nullptr, 0, record.data(), record.size()));
    finish_record(record);
    return *this;
}

void RecordingBuilder::write(const std::string &dir, size_t length) const {
    mkdir(dir.c_str(), 0755);
    std::ofstream out(dir + "/" + kRecordingFileName, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(file_.data()),
              static_cast<std::streamsize>(std::min(length, file_.size())));
}
