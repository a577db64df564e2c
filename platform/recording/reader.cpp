// Reading a recording: the header's refusals, the records in order, and the
// count of what damage cut.
#include "recording/reader.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>

namespace recording {
namespace {

std::string format(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char *fmt, ...) {
    char text[512];
    va_list args;
    va_start(args, fmt);
    vsnprintf(text, sizeof text, fmt, args);
    va_end(args);
    return text;
}

size_t field_bytes(Kind kind) {
    switch (kind) {
        case Kind::Frame:
            return kFrameFieldBytes;
        case Kind::Dropped:
            return kDroppedFieldBytes;
        case Kind::End:
            return kEndFieldBytes;
        default:
            return kDatagramFieldBytes;
    }
}

bool read_exactly(std::FILE *stream, void *to, size_t size) {
    return size == 0 || fread(to, 1, size, stream) == size;
}

}  // namespace

bool is_recording_path(const std::string &path) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0) {
        return false;
    }
    const size_t dot = path.rfind('.');
    if (S_ISDIR(st.st_mode) ||
        (dot != std::string::npos && path.compare(dot, std::string::npos, ".fdr") == 0)) {
        return true;
    }
    std::FILE *stream = fopen(path.c_str(), "rbe");
    if (stream == nullptr) {
        return false;
    }
    uint8_t bytes[kFileHeaderBytes];
    const size_t got = fread(bytes, 1, sizeof bytes, stream);
    fclose(stream);
    FileHeader ignored;
    return decode_file_header(bytes, got, &ignored) != HeaderCheck::NotARecording;
}

std::unique_ptr<Reader> Reader::open(const std::string &path, const FrameGeometry &frame,
                                     std::string *error) {
    std::string file = path;
    struct stat st;
    if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
        file = path + "/" + kRecordingFileName;
    }
    std::FILE *stream = fopen(file.c_str(), "rbe");
    if (stream == nullptr) {
        *error = file + ": cannot open: " + strerror(errno);
        return nullptr;
    }
    return open_stream(stream, file, frame, error);
}

std::unique_ptr<Reader> Reader::open_stream(std::FILE *stream, const std::string &name,
                                            const FrameGeometry &frame, std::string *error) {
    if (stream == nullptr) {
        *error = name + ": cannot open";
        return nullptr;
    }
    std::unique_ptr<Reader> reader(new Reader(stream, name));
    uint8_t bytes[kFileHeaderBytes];
    const size_t got = fread(bytes, 1, sizeof bytes, stream);
    FileHeader &h = reader->header_;
    switch (decode_file_header(bytes, got, &h)) {
        case HeaderCheck::Ok:
            break;
        case HeaderCheck::NotARecording:
            *error = name + ": not a faceDet recording";
            return nullptr;
        case HeaderCheck::UnknownVersion:
            *error = name + (h.version > kFormatVersion
                                 ? format(": recording format version %u is newer than this reader's %u",
                                          h.version, kFormatVersion)
                                 : format(": recording format version %u is not one this reader knows (it "
                                          "reads version %u)",
                                          h.version, kFormatVersion));
            return nullptr;
        case HeaderCheck::Damaged:
            *error = name + ": not a faceDet recording: its header is cut short or damaged";
            return nullptr;
    }
    if (h.frame != frame) {
        *error = name + format(
                            ": frames of %ux%u, pixel format %u, %u + %u bytes; this reader takes %ux%u, "
                            "pixel format %u, %u + %u bytes",
                            h.frame.width, h.frame.height, h.frame.pixelFormat, h.frame.lumaBytes,
                            h.frame.chromaBytes, frame.width, frame.height, frame.pixelFormat,
                            frame.lumaBytes, frame.chromaBytes);
        return nullptr;
    }
    return reader;
}

Reader::~Reader() {
    fclose(stream_);
}

bool Reader::read_record(Record *record) {
    uint8_t head[kRecordHeadBytes];
    RecordHead h;
    if (!read_exactly(stream_, head, sizeof head) || !decode_record_head(head, &h) ||
        !body_size_valid(header_, h.kind, h.bodyBytes)) {
        return false;
    }
    uint8_t fields[kFrameFieldBytes];
    const size_t fieldCount = field_bytes(h.kind);
    record->bytes.resize(h.bodyBytes - fieldCount);
    uint8_t crc[kRecordCrcBytes];
    if (!read_exactly(stream_, fields, fieldCount) ||
        !read_exactly(stream_, record->bytes.data(), record->bytes.size()) ||
        !read_exactly(stream_, crc, sizeof crc)) {
        return false;
    }
    uint32_t sum = crc32(crc32(crc32(0, head, sizeof head), fields, fieldCount), record->bytes.data(),
                         record->bytes.size());
    const uint32_t stored = static_cast<uint32_t>(crc[0]) | static_cast<uint32_t>(crc[1]) << 8 |
                            static_cast<uint32_t>(crc[2]) << 16 | static_cast<uint32_t>(crc[3]) << 24;
    if (sum != stored) {
        return false;
    }
    record->kind = h.kind;
    record->index = h.index;
    record->timeUs = h.timeUs;
    switch (h.kind) {
        case Kind::Frame:
            record->frame = decode_frame_fields(fields);
            return true;
        case Kind::Dropped:
            record->dropped = decode_dropped_fields(fields);
            return true;
        case Kind::End:
            record->end = decode_end_fields(fields);
            return true;
        default:
            record->datagram = decode_datagram_fields(fields);
            return record->datagram.kept == record->bytes.size() &&
                   record->datagram.kept <= record->datagram.length;
    }
}

bool Reader::next(Record *record) {
    if (finished_) {
        return false;
    }
    const off_t at = ftello(stream_);
    if (read_record(record) && record->index == yielded_) {
        ++yielded_;
        ended_ = ended_ || record->kind == Kind::End;
        return true;
    }
    finished_ = true;
    // Nothing whole here: either nothing is left, or this is damage.
    fseeko(stream_, at, SEEK_SET);
    if (getc(stream_) != EOF) {
        damaged_ = true;
        damageOffset_ = static_cast<uint64_t>(at);
        count_cut();
    }
    return false;
}

// Looks for whole records from the damage on: each found is one the damage
// kept from being read, and its index says how many came before it.
void Reader::count_cut() {
    Record found;
    bool any = false;
    uint64_t highest = 0;
    off_t lastEnd = static_cast<off_t>(damageOffset_);
    std::vector<uint8_t> block(1 << 16);
    off_t from = lastEnd;
    for (;;) {
        fseeko(stream_, from, SEEK_SET);
        const size_t got = fread(block.data(), 1, block.size(), stream_);
        if (got < sizeof kRecordMark) {
            break;
        }
        const uint8_t *end = block.data() + got;
        const uint8_t *begin = block.data();
        const uint8_t *mark = std::search(begin, end, kRecordMark, kRecordMark + sizeof kRecordMark);
        if (mark == end) {
            from += static_cast<off_t>(got - (sizeof kRecordMark - 1));
            continue;
        }
        const off_t candidate = from + (mark - block.data());
        fseeko(stream_, candidate, SEEK_SET);
        if (read_record(&found)) {
            highest = any ? std::max(highest, found.index) : found.index;
            any = true;
            lastEnd = ftello(stream_);
            from = lastEnd;
        } else {
            from = candidate + 1;
        }
    }
    fseeko(stream_, 0, SEEK_END);
    const bool tail = ftello(stream_) > lastEnd;
    cut_ = (any && highest + 1 > yielded_ ? highest + 1 - yielded_ : 0) + (tail ? 1 : 0);
    // Damage that only repeats records already read still held something.
    cut_ = std::max<uint64_t>(cut_, 1);
}

std::string Reader::summary() const {
    const unsigned long long n = yielded_;
    if (damaged_) {
        return format("%llu records; damaged at byte %llu: %llu records cut", n,
                      static_cast<unsigned long long>(damageOffset_), static_cast<unsigned long long>(cut_));
    }
    return format("%llu records, %s", n, ended_ ? "ended in order" : "not closed in order");
}

}  // namespace recording
