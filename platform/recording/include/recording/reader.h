/*
 * Reads a recording record by record (docs/RECORDING.md). Opening refuses, in
 * one line naming the file, what is not a recording, another format version
 * and frames of another size than the reader's user takes. Reading yields the
 * whole records in the order written and stops at the first damage (a record
 * cut short, a failed check, a missing index); it then looks past the damage
 * to say how many records were cut. Thread-bound.
 */
#ifndef FACEDET_RECORDING_READER_H
#define FACEDET_RECORDING_READER_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "recording/format.h"

namespace recording {

struct Record {
    Kind kind = Kind::Frame;
    uint64_t index = 0;
    uint64_t timeUs = 0;      // CLOCK_MONOTONIC of the recorded process
    FrameFields frame;        // Kind::Frame
    DatagramFields datagram;  // the four datagram kinds
    DroppedFields dropped;    // Kind::Dropped
    EndFields end;            // Kind::End
    // Frame: luma then chroma (FrameGeometry sizes); datagrams: the kept bytes.
    // Reused from record to record when the same Record is passed again.
    std::vector<uint8_t> bytes;
};

// Whether `path` is meant as a recording: a directory (whose recording.fdr
// the reader opens), a file named *.fdr, or a file that begins with the
// recording's magic, whatever its name. Says nothing of whether it reads.
bool is_recording_path(const std::string &path);

class Reader {
  public:
    // path: a recording directory (its recording.fdr) or the file itself.
    // Null, with *error one line naming the file, when it cannot be read, is
    // not a recording, has another format version, or frames other than `frame`.
    static std::unique_ptr<Reader> open(const std::string &path, const FrameGeometry &frame,
                                        std::string *error);
    // The same over a stream the reader takes over (fclose at the end); `name`
    // names it in messages. The stream must be seekable.
    static std::unique_ptr<Reader> open_stream(std::FILE *stream, const std::string &name,
                                               const FrameGeometry &frame, std::string *error);
    ~Reader();
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    const FileHeader &header() const { return header_; }
    const std::string &file() const { return name_; }

    // The next whole record; false at the end of the file or at the first damage.
    bool next(Record *record);

    // Once next() has returned false:
    // Records yielded.
    uint64_t records() const { return yielded_; }
    // Whether an End record was read (the recorder closed the recording in order).
    bool ended() const { return ended_; }
    // Whether reading stopped at damage rather than at the end of the file.
    bool damaged() const { return damaged_; }
    uint64_t damage_offset() const { return damageOffset_; }
    // Records lost at and after the damage: the highest index of a whole
    // record found past the damage, plus one, less the records yielded; plus
    // one for bytes at the end that are not a whole record; at least 1 with
    // damage, 0 without.
    uint64_t cut() const { return cut_; }
    // One line on how the reading ended, e.g. "1523 records, ended in order" or
    // "212 records; damaged at byte 3095012: 14 records cut".
    std::string summary() const;

  private:
    Reader(std::FILE *stream, std::string name) : stream_(stream), name_(std::move(name)) {}
    // Reads the record at the stream's position into *record; false if none is whole and valid there.
    bool read_record(Record *record);
    void count_cut();

    std::FILE *stream_;
    std::string name_;
    FileHeader header_;
    uint64_t yielded_ = 0;
    bool ended_ = false;
    bool damaged_ = false;
    bool finished_ = false;
    uint64_t damageOffset_ = 0;
    uint64_t cut_ = 0;
    std::vector<uint8_t> scratch_;
};

}  // namespace recording

#endif
