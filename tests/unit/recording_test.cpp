// The recording format's reader on one small synthetic recording: cut at every
// length, corrupted in every record, and the recordings it must refuse.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "recording/reader.h"
#include "temp_dir.h"

namespace {

using namespace recording;
using Bytes = std::vector<uint8_t>;

constexpr FrameGeometry kTiny = {8, 2, kPixelFormatNv12, 16, 8};

Bytes header_bytes(uint16_t version, const FrameGeometry &frame) {
    FileHeader h;
    h.version = version;
    h.frame = frame;
    h.pid = 42;
    Bytes out(kFileHeaderBytes);
    encode_file_header(h, out.data());
    return out;
}

void append_frame(Bytes *file, uint64_t index, uint8_t fill) {
    uint8_t head[kRecordHeadBytes], fields[kFrameFieldBytes];
    encode_record_head({Kind::Frame, index, 1000 * index, uint32_t(kFrameFieldBytes + 24)}, head);
    FrameFields f;
    f.pts = 33333 * index;
    encode_frame_fields(f, fields);
    const Bytes planes(24, fill);
    const uint32_t crc = crc32(crc32(crc32(0, head, sizeof head), fields, sizeof fields), planes.data(), 24);
    file->insert(file->end(), head, head + sizeof head);
    file->insert(file->end(), fields, fields + sizeof fields);
    file->insert(file->end(), planes.begin(), planes.end());
    for (int i = 0; i < 4; ++i) {
        file->push_back(uint8_t(crc >> (8 * i)));
    }
}

void append_small(Bytes *file, Kind kind, uint64_t index, const uint8_t *fields, size_t fieldBytes,
                  const Bytes &bytes = {}) {
    uint8_t out[512];
    const size_t n = encode_small_record({kind, index, 1000 * index, 0}, fields, fieldBytes, bytes.data(),
                                         bytes.size(), out, sizeof out);
    file->insert(file->end(), out, out + n);
}

// Header, then a frame, a packet, a reply, a control datagram, a drop, a frame
// and the end; *ends gets the offset after each record.
Bytes sample(std::vector<size_t> *ends) {
    Bytes file = header_bytes(kFormatVersion, kTiny);
    auto mark = [&] { ends->push_back(file.size()); };
    append_frame(&file, 0, 0x10);
    mark();
    const Bytes move = {0x81, 0x01, 0x04, 0x47, 0, 0, 0, 0, 0xFF};
    uint8_t fields[kDatagramFieldBytes];
    encode_datagram_fields({9, 0, 9, 9}, fields);
    append_small(&file, Kind::CameraPacket, 1, fields, sizeof fields, move);
    mark();
    encode_datagram_fields({3, 0, 3, 3}, fields);
    append_small(&file, Kind::CameraReply, 2, fields, sizeof fields, {0x90, 0x41, 0xFF});
    mark();
    encode_datagram_fields({2, 0, 2, 2}, fields);
    append_small(&file, Kind::Control, 3, fields, sizeof fields, {0x01, 0x01});
    mark();
    uint8_t dropped[kDroppedFieldBytes];
    encode_dropped_fields({2, 1}, dropped);
    append_small(&file, Kind::Dropped, 4, dropped, sizeof dropped);
    mark();
    append_frame(&file, 5, 0x20);
    mark();
    uint8_t end[kEndFieldBytes];
    encode_end_fields({6, 3}, end);
    append_small(&file, Kind::End, 6, end, sizeof end);
    mark();
    return file;
}

struct Outcome {
    std::string error;  // the refusal, or empty
    std::vector<Record> records;
    bool damaged = false, ended = false;
    uint64_t cut = 0;
};

Outcome read_all(Bytes bytes, const FrameGeometry &frame = kTiny) {
    Outcome o;
    std::FILE *stream = fmemopen(bytes.data(), bytes.size(), "rb");
    std::unique_ptr<Reader> reader = Reader::open_stream(stream, "rec.fdr", frame, &o.error);
    if (!reader) {
        return o;
    }
    for (Record r; reader->next(&r);) {
        o.records.push_back(r);
    }
    o.damaged = reader->damaged();
    o.ended = reader->ended();
    o.cut = reader->cut();
    EXPECT_EQ(reader->records(), o.records.size());
    return o;
}

TEST(RecordingFormat, CrcIsTheUsualCrc32) {
    EXPECT_EQ(crc32(0, "123456789", 9), 0xCBF43926u);
    const Bytes zeros(32, 0);
    EXPECT_EQ(crc32(crc32(0, zeros.data(), 13), zeros.data() + 13, 19), 0x190A55ADu);
}

TEST(RecordingReader, ReadsEveryRecordOfAWholeRecording) {
    std::vector<size_t> ends;
    const Outcome o = read_all(sample(&ends));
    ASSERT_EQ(o.error, "");
    ASSERT_EQ(o.records.size(), 7u);
    EXPECT_TRUE(o.ended);
    EXPECT_FALSE(o.damaged);
    EXPECT_EQ(o.records[0].bytes, Bytes(24, 0x10));
    EXPECT_EQ(o.records[5].frame.pts, 5 * 33333u);
    EXPECT_EQ(o.records[1].kind, Kind::CameraPacket);
    EXPECT_EQ(o.records[1].bytes.size(), 9u);
    EXPECT_EQ(o.records[2].bytes, (Bytes{0x90, 0x41, 0xFF}));
    EXPECT_EQ(o.records[3].timeUs, 3000u);
    EXPECT_EQ(o.records[4].dropped.frames + o.records[4].dropped.datagrams, 3u);
    EXPECT_EQ(o.records[6].end.records, 6u);
}

// Cut at every length: the whole records before the cut, and one record cut
// unless the cut falls on a record's end.
TEST(RecordingReader, CutAtEveryLengthYieldsTheWholeRecordsBeforeIt) {
    std::vector<size_t> ends;
    const Bytes whole = sample(&ends);
    for (size_t length = 1; length < whole.size(); ++length) {
        const Outcome o = read_all(Bytes(whole.begin(), whole.begin() + length));
        if (length < kFileHeaderBytes) {
            EXPECT_NE(o.error.find(length < 10 ? "rec.fdr: not a faceDet recording" : "cut short or damaged"),
                      std::string::npos)
                << length << ": " << o.error;
            continue;
        }
        const size_t whole_records = std::upper_bound(ends.begin(), ends.end(), length) - ends.begin();
        const bool onBoundary = length == kFileHeaderBytes || std::count(ends.begin(), ends.end(), length);
        EXPECT_EQ(o.records.size(), whole_records) << length;
        EXPECT_EQ(o.damaged, !onBoundary) << length;
        EXPECT_EQ(o.cut, onBoundary ? 0u : 1u) << length;
        EXPECT_FALSE(o.ended) << length;
    }
}

// One byte changed in a record's head, body or check: the records before it,
// and everything from it on counted as cut, found again past the damage.
TEST(RecordingReader, CorruptionStopsAtTheDamagedRecordAndCountsTheRest) {
    std::vector<size_t> ends;
    const Bytes whole = sample(&ends);
    size_t start = kFileHeaderBytes;
    for (size_t k = 0; k < ends.size(); start = ends[k++]) {
        for (size_t at : {start, start + 8, start + 12, (start + ends[k]) / 2, ends[k] - 1}) {
            Bytes bytes = whole;
            bytes[at] ^= 0x40;
            const Outcome o = read_all(bytes);
            EXPECT_EQ(o.records.size(), k) << "byte " << at;
            EXPECT_TRUE(o.damaged);
            EXPECT_EQ(o.cut, ends.size() - k) << "byte " << at;
        }
    }
    // A whole record missing: its index is the damage.
    Bytes gap(whole.begin(), whole.begin() + ends[1]);
    gap.insert(gap.end(), whole.begin() + ends[2], whole.end());
    const Outcome o = read_all(gap);
    EXPECT_EQ(o.records.size(), 2u);
    EXPECT_EQ(o.cut, 5u);
}

TEST(RecordingReader, RefusesWhatItCannotReadInOneLineNamingTheFile) {
    std::vector<size_t> ends;
    const Bytes whole = sample(&ends);
    auto with_header = [&](const Bytes &header) {
        Bytes b = header;
        b.insert(b.end(), whole.begin() + kFileHeaderBytes, whole.end());
        return b;
    };
    Bytes text(whole.size(), 'x');
    EXPECT_EQ(read_all(text).error, "rec.fdr: not a faceDet recording");
    EXPECT_EQ(read_all(with_header(header_bytes(2, kTiny))).error,
              "rec.fdr: recording format version 2 is newer than this reader's 1");
    EXPECT_EQ(read_all(with_header(header_bytes(0, kTiny))).error,
              "rec.fdr: recording format version 0 is not one this reader knows (it reads version 1)");
    EXPECT_EQ(read_all(whole, kAnalysisFrame).error,
              "rec.fdr: frames of 8x2, pixel format 11, 16 + 8 bytes; this reader takes 416x234, pixel "
              "format 11, 97344 + 48672 bytes");
    Bytes damagedHeader = whole;
    damagedHeader[20] ^= 1;
    EXPECT_EQ(read_all(damagedHeader).error,
              "rec.fdr: not a faceDet recording: its header is cut short or damaged");

    TempDir dir;
    std::string error;
    EXPECT_EQ(Reader::open(dir.path(), kTiny, &error), nullptr);
    EXPECT_EQ(error, dir.file("recording.fdr") + ": cannot open: No such file or directory");
    write_file(dir.file("recording.fdr"), std::string(whole.begin(), whole.end()));
    EXPECT_NE(Reader::open(dir.path(), kTiny, &error), nullptr) << error;
}

}  // namespace
