// Writes small flight recordings for the tests that read them: frames of the
// analysis picture and datagrams, each at a given time, in the recorder's format.
#ifndef FACEDET_TEST_RECORDING_BUILDER_H
#define FACEDET_TEST_RECORDING_BUILDER_H

#include <cstdint>
#include <string>
#include <vector>

#include "recording/format.h"

class RecordingBuilder {
  public:
    explicit RecordingBuilder(uint16_t version = recording::kFormatVersion,
                              const recording::FrameGeometry &frame = recording::kAnalysisFrame);

    // A frame taken at `timeUs` (since the recording began): `nv12` as the
    // header's planes, or every byte `fill` when empty.
    RecordingBuilder &frame(uint64_t timeUs, const std::vector<uint8_t> &nv12, uint8_t fill = 0x80);
    // A datagram of a datagram kind, received or sent whole.
    RecordingBuilder &datagram(recording::Kind kind, uint64_t timeUs, const std::vector<uint8_t> &bytes);
    RecordingBuilder &end();

    const std::vector<uint8_t> &bytes() const { return file_; }
    // Offsets where each record ends, in order.
    const std::vector<size_t> &record_ends() const { return ends_; }
    // Writes the first `length` bytes (all by default) as DIR/recording.fdr, making DIR.
    void write(const std::string &dir, size_t length = SIZE_MAX) const;

  private:
    void finish_record(const std::vector<uint8_t> &record);

    recording::FileHeader header_;
    std::vector<uint8_t> file_;
    std::vector<size_t> ends_;
    uint64_t next_ = 0;
};

#endif
