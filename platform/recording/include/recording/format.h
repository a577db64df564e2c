/*
 * The flight recorder's file format (docs/RECORDING.md): a recording is one
 * file of records, each self-delimiting and checked, after a header that says
 * what the file holds. Encoding and decoding of single pieces only, no I/O and
 * no allocation, so that the recorder inside the daemon, the host platform and
 * the tools share one definition of the bytes. All numbers are little-endian.
 */
#ifndef FACEDET_RECORDING_FORMAT_H
#define FACEDET_RECORDING_FORMAT_H

#include <cstddef>
#include <cstdint>

namespace recording {

// Version 1. A reader refuses every other version, so that a recording is
// never read with another version's layout.
constexpr uint16_t kFormatVersion = 1;
// The records' file inside a recording directory.
constexpr char kRecordingFileName[] = "recording.fdr";

constexpr size_t kFileHeaderBytes = 64;
constexpr size_t kRecordHeadBytes = 28;
constexpr size_t kRecordCrcBytes = 4;
// The first bytes of every record; a reader looks for them past damage.
constexpr uint8_t kRecordMark[4] = {'R', 'E', 'C', 0x1E};
// A datagram's first bytes kept in its record; the daemon's are at most 256.
constexpr uint32_t kMaxDatagramBytes = 256;
constexpr uint32_t kPixelFormatNv12 = 11;  // E_MI_SYS_PIXEL_FRAME_YUV_SEMIPLANAR_420

// What each frame record holds: the two planes the daemon copies.
struct FrameGeometry {
    uint16_t width = 0;
    uint16_t height = 0;
    uint32_t pixelFormat = 0;
    uint32_t lumaBytes = 0;
    uint32_t chromaBytes = 0;
    bool operator==(const FrameGeometry &o) const {
        return width == o.width && height == o.height && pixelFormat == o.pixelFormat &&
               lumaBytes == o.lumaBytes && chromaBytes == o.chromaBytes;
    }
    bool operator!=(const FrameGeometry &o) const { return !(*this == o); }
};
// The analysis stream's 416x234 NV12 picture: 97344 bytes of luma, 48672 of chroma.
constexpr FrameGeometry kAnalysisFrame = {416, 234, kPixelFormatNv12, 416 * 234, 416 * 234 / 2};

struct FileHeader {
    uint16_t version = kFormatVersion;
    FrameGeometry frame = kAnalysisFrame;
    uint32_t maxDatagramBytes = kMaxDatagramBytes;
    uint64_t startWallUs = 0;       // CLOCK_REALTIME when the recording began
    uint64_t startMonotonicUs = 0;  // CLOCK_MONOTONIC at that moment; record times are on this clock
    uint32_t pid = 0;               // the recorded process
};

enum class Kind : uint8_t {
    Frame = 1,          // a frame the daemon took, as it copies it
    CameraPacket = 2,   // a datagram the daemon sent to the camera's control process
    Udp1259Packet = 3,  // a datagram the daemon sent to UDP 127.0.0.1:1259
    CameraReply = 4,    // a datagram the camera's control process sent back
    Control = 5,        // a control datagram the daemon received
    Dropped = 6,        // events the recorder could not keep, right here
    End = 7,            // the recorder closed the recording in order
};
constexpr int kKindCount = 7;
const char *kind_name(Kind kind);  // "frame", "camera_packet", ...; "unknown" otherwise

// Every record: head, body (the kind's fields, then its bytes), CRC-32 of head and body.
struct RecordHead {
    Kind kind = Kind::Frame;
    uint64_t index = 0;   // 0, 1, 2, ... in the order written
    uint64_t timeUs = 0;  // CLOCK_MONOTONIC when the event happened
    uint32_t bodyBytes = 0;
};

// Fields of a frame record, before luma and chroma.
struct FrameFields {
    uint64_t pts = 0;  // the port's time stamp (u64Pts)
    uint32_t module = 0, device = 0, channel = 0, port = 0;
    uint16_t width = 0, height = 0;  // the buffer description's, for reference
    uint32_t stride[2] = {0, 0};
};
constexpr size_t kFrameFieldBytes = 36;

// Fields of a datagram record (sent, reply or control), before its kept bytes.
struct DatagramFields {
    int32_t result = 0;   // what sendto/recvfrom returned
    int32_t error = 0;    // errno when result < 0, else 0
    uint32_t length = 0;  // the datagram's length (asked to send, or received)
    uint32_t kept = 0;    // bytes that follow: min(length, kMaxDatagramBytes)
};
constexpr size_t kDatagramFieldBytes = 16;

struct DroppedFields {
    uint32_t frames = 0;
    uint32_t datagrams = 0;
};
constexpr size_t kDroppedFieldBytes = 8;

struct EndFields {
    uint64_t records = 0;  // records before this one
    uint64_t dropped = 0;  // events dropped over the whole recording
};
constexpr size_t kEndFieldBytes = 16;

// CRC-32 (IEEE 802.3, as zlib's crc32): crc32(0, ...) starts, feed the result back to continue.
uint32_t crc32(uint32_t crc, const void *data, size_t size);

void encode_file_header(const FileHeader &header, uint8_t out[kFileHeaderBytes]);
enum class HeaderCheck {
    Ok,
    NotARecording,   // too short for the magic, or another magic
    UnknownVersion,  // *out holds only the version
    Damaged,         // cut short or its CRC does not match
};
HeaderCheck decode_file_header(const uint8_t *bytes, size_t size, FileHeader *out);

void encode_record_head(const RecordHead &head, uint8_t out[kRecordHeadBytes]);
// False unless the bytes start with the record mark, a known kind and zero reserved bytes.
bool decode_record_head(const uint8_t *bytes, RecordHead *out);
// Whether a record of this kind may have this body size in a file with this header.
bool body_size_valid(const FileHeader &header, Kind kind, uint32_t bodyBytes);

void encode_frame_fields(const FrameFields &f, uint8_t out[kFrameFieldBytes]);
FrameFields decode_frame_fields(const uint8_t *bytes);
void encode_datagram_fields(const DatagramFields &f, uint8_t out[kDatagramFieldBytes]);
DatagramFields decode_datagram_fields(const uint8_t *bytes);
void encode_dropped_fields(const DroppedFields &f, uint8_t out[kDroppedFieldBytes]);
DroppedFields decode_dropped_fields(const uint8_t *bytes);
void encode_end_fields(const EndFields &f, uint8_t out[kEndFieldBytes]);
EndFields decode_end_fields(const uint8_t *bytes);

// A whole small record (all but frames) in one buffer: head (its bodyBytes set
// from the sizes), fields, bytes, CRC. Returns its size, or 0 when it does not
// fit in `capacity`.
size_t encode_small_record(const RecordHead &head, const uint8_t *fields, size_t fieldBytes,
                           const uint8_t *bytes, size_t byteCount, uint8_t *out, size_t capacity);

}  // namespace recording

#endif
