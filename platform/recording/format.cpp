// The bytes of a recording's header and records (docs/RECORDING.md).
#include "recording/format.h"

#include <algorithm>
#include <cstring>

namespace recording {
namespace {

constexpr uint8_t kMagic[8] = {'F', 'D', 'R', 'E', 'C', '\r', '\n', 0x1A};

// The CRC's tables for eight bytes a step (each frame record is checked over
// 146 KB on the camera's CPU), made by the compiler.
struct CrcTables {
    uint32_t t[8][256];
    constexpr CrcTables() : t() {
        for (uint32_t i = 0; i < 256; ++i) {
            uint32_t c = i;
            for (int bit = 0; bit < 8; ++bit) {
                c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            }
            t[0][i] = c;
        }
        for (int k = 1; k < 8; ++k) {
            for (int i = 0; i < 256; ++i) {
                t[k][i] = (t[k - 1][i] >> 8) ^ t[0][t[k - 1][i] & 0xFF];
            }
        }
    }
};
constexpr CrcTables kCrc;

void put16(uint8_t *p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}
void put32(uint8_t *p, uint32_t v) {
    for (int i = 0; i < 4; ++i) {
        p[i] = static_cast<uint8_t>(v >> (8 * i));
    }
}
void put64(uint8_t *p, uint64_t v) {
    put32(p, static_cast<uint32_t>(v));
    put32(p + 4, static_cast<uint32_t>(v >> 32));
}
uint16_t get16(const uint8_t *p) {
    return static_cast<uint16_t>(p[0] | p[1] << 8);
}
uint32_t get32(const uint8_t *p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}
uint64_t get64(const uint8_t *p) {
    return get32(p) | static_cast<uint64_t>(get32(p + 4)) << 32;
}

}  // namespace

const char *kind_name(Kind kind) {
    // By the kind's number, which starts at 1.
    static const char *const kNames[kKindCount] = {
        "frame", "camera_packet", "udp1259_packet", "camera_reply", "control", "dropped", "end"};
    const int index = static_cast<int>(kind) - 1;
    return index >= 0 && index < kKindCount ? kNames[index] : "unknown";
}

uint32_t crc32(uint32_t crc, const void *data, size_t size) {
    const uint8_t *p = static_cast<const uint8_t *>(data);
    const auto &t = kCrc.t;
    crc = ~crc;
    for (; size >= 8; size -= 8, p += 8) {
        const uint32_t lo = get32(p) ^ crc, hi = get32(p + 4);
        crc = t[7][lo & 0xFF] ^ t[6][(lo >> 8) & 0xFF] ^ t[5][(lo >> 16) & 0xFF] ^ t[4][lo >> 24] ^
              t[3][hi & 0xFF] ^ t[2][(hi >> 8) & 0xFF] ^ t[1][(hi >> 16) & 0xFF] ^ t[0][hi >> 24];
    }
    for (; size > 0; --size, ++p) {
        crc = t[0][(crc ^ *p) & 0xFF] ^ (crc >> 8);
    }
    return ~crc;
}

// 0 magic, 8 version, 10 header bytes, 12 width, 14 height, 16 pixel format,
// 20 luma bytes, 24 chroma bytes, 28 datagram bytes kept, 32 wall clock,
// 40 monotonic clock, 48 pid, 52 reserved, 60 CRC of bytes 0-59.
void encode_file_header(const FileHeader &h, uint8_t out[kFileHeaderBytes]) {
    memset(out, 0, kFileHeaderBytes);
    memcpy(out, kMagic, sizeof kMagic);
    put16(out + 8, h.version);
    put16(out + 10, kFileHeaderBytes);
    put16(out + 12, h.frame.width);
    put16(out + 14, h.frame.height);
    put32(out + 16, h.frame.pixelFormat);
    put32(out + 20, h.frame.lumaBytes);
    put32(out + 24, h.frame.chromaBytes);
    put32(out + 28, h.maxDatagramBytes);
    put64(out + 32, h.startWallUs);
    put64(out + 40, h.startMonotonicUs);
    put32(out + 48, h.pid);
    put32(out + 60, crc32(0, out, 60));
}

HeaderCheck decode_file_header(const uint8_t *bytes, size_t size, FileHeader *out) {
    if (size < 10 || memcmp(bytes, kMagic, sizeof kMagic) != 0) {
        return HeaderCheck::NotARecording;
    }
    // The version first: another version may lay out even the header differently.
    out->version = get16(bytes + 8);
    if (out->version != kFormatVersion) {
        return HeaderCheck::UnknownVersion;
    }
    if (size < kFileHeaderBytes || get16(bytes + 10) != kFileHeaderBytes ||
        get32(bytes + 60) != crc32(0, bytes, 60)) {
        return HeaderCheck::Damaged;
    }
    out->frame.width = get16(bytes + 12);
    out->frame.height = get16(bytes + 14);
    out->frame.pixelFormat = get32(bytes + 16);
    out->frame.lumaBytes = get32(bytes + 20);
    out->frame.chromaBytes = get32(bytes + 24);
    out->maxDatagramBytes = get32(bytes + 28);
    out->startWallUs = get64(bytes + 32);
    out->startMonotonicUs = get64(bytes + 40);
    out->pid = get32(bytes + 48);
    return HeaderCheck::Ok;
}

// 0 mark, 4 body bytes, 8 kind, 9 three zero bytes, 12 index, 20 time.
void encode_record_head(const RecordHead &head, uint8_t out[kRecordHeadBytes]) {
    memcpy(out, kRecordMark, sizeof kRecordMark);
    put32(out + 4, head.bodyBytes);
    out[8] = static_cast<uint8_t>(head.kind);
    out[9] = out[10] = out[11] = 0;
    put64(out + 12, head.index);
    put64(out + 20, head.timeUs);
}

bool decode_record_head(const uint8_t *bytes, RecordHead *out) {
    const uint8_t kind = bytes[8];
    if (memcmp(bytes, kRecordMark, sizeof kRecordMark) != 0 || kind < 1 || kind > kKindCount ||
        (bytes[9] | bytes[10] | bytes[11]) != 0) {
        return false;
    }
    out->bodyBytes = get32(bytes + 4);
    out->kind = static_cast<Kind>(kind);
    out->index = get64(bytes + 12);
    out->timeUs = get64(bytes + 20);
    return true;
}

bool body_size_valid(const FileHeader &header, Kind kind, uint32_t bodyBytes) {
    switch (kind) {
        case Kind::Frame:
            return bodyBytes ==
                   kFrameFieldBytes + uint64_t{header.frame.lumaBytes} + header.frame.chromaBytes;
        case Kind::CameraPacket:
        case Kind::Udp1259Packet:
        case Kind::CameraReply:
        case Kind::Control:
            return bodyBytes >= kDatagramFieldBytes &&
                   bodyBytes - kDatagramFieldBytes <= std::min(header.maxDatagramBytes, kMaxDatagramBytes);
        case Kind::Dropped:
            return bodyBytes == kDroppedFieldBytes;
        case Kind::End:
            return bodyBytes == kEndFieldBytes;
    }
    return false;
}

// 0 pts, 8 module, 12 device, 16 channel, 20 port, 24 width, 26 height, 28 and 32 strides.
void encode_frame_fields(const FrameFields &f, uint8_t out[kFrameFieldBytes]) {
    put64(out, f.pts);
    put32(out + 8, f.module);
    put32(out + 12, f.device);
    put32(out + 16, f.channel);
    put32(out + 20, f.port);
    put16(out + 24, f.width);
    put16(out + 26, f.height);
    put32(out + 28, f.stride[0]);
    put32(out + 32, f.stride[1]);
}

FrameFields decode_frame_fields(const uint8_t *bytes) {
    FrameFields f;
    f.pts = get64(bytes);
    f.module = get32(bytes + 8);
    f.device = get32(bytes + 12);
    f.channel = get32(bytes + 16);
    f.port = get32(bytes + 20);
    f.width = get16(bytes + 24);
    f.height = get16(bytes + 26);
    f.stride[0] = get32(bytes + 28);
    f.stride[1] = get32(bytes + 32);
    return f;
}

void encode_datagram_fields(const DatagramFields &f, uint8_t out[kDatagramFieldBytes]) {
    put32(out, static_cast<uint32_t>(f.result));
    put32(out + 4, static_cast<uint32_t>(f.error));
    put32(out + 8, f.length);
    put32(out + 12, f.kept);
}

DatagramFields decode_datagram_fields(const uint8_t *bytes) {
    DatagramFields f;
    f.result = static_cast<int32_t>(get32(bytes));
    f.error = static_cast<int32_t>(get32(bytes + 4));
    f.length = get32(bytes + 8);
    f.kept = get32(bytes + 12);
    return f;
}

void encode_dropped_fields(const DroppedFields &f, uint8_t out[kDroppedFieldBytes]) {
    put32(out, f.frames);
    put32(out + 4, f.datagrams);
}

DroppedFields decode_dropped_fields(const uint8_t *bytes) {
    return {get32(bytes), get32(bytes + 4)};
}

void encode_end_fields(const EndFields &f, uint8_t out[kEndFieldBytes]) {
    put64(out, f.records);
    put64(out + 8, f.dropped);
}

EndFields decode_end_fields(const uint8_t *bytes) {
    return {get64(bytes), get64(bytes + 8)};
}

size_t encode_small_record(const RecordHead &head, const uint8_t *fields, size_t fieldBytes,
                           const uint8_t *bytes, size_t byteCount, uint8_t *out, size_t capacity) {
    const size_t total = kRecordHeadBytes + fieldBytes + byteCount + kRecordCrcBytes;
    if (total > capacity) {
        return 0;
    }
    RecordHead sized = head;
    sized.bodyBytes = static_cast<uint32_t>(fieldBytes + byteCount);
    encode_record_head(sized, out);
    memcpy(out + kRecordHeadBytes, fields, fieldBytes);
    if (byteCount > 0) {
        memcpy(out + kRecordHeadBytes + fieldBytes, bytes, byteCount);
    }
    put32(out + total - kRecordCrcBytes, crc32(0, out, total - kRecordCrcBytes));
    return total;
}

}  // namespace recording
