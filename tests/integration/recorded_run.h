// A recording made by a test's daemon, read back for comparison with the
// daemon's frame log and camera_sim's log.
#ifndef FACEDET_TEST_RECORDED_RUN_H
#define FACEDET_TEST_RECORDED_RUN_H

#include <string>
#include <vector>

#include "recording/reader.h"

struct RecordedRun {
    std::string error;    // why it could not be read; empty when it was
    std::string summary;  // the reader's
    bool ended = false;
    std::vector<recording::Record> records;  // every record, frames included

    std::vector<const recording::Record *> of(recording::Kind kind) const;
    // "81 01 04 47 ..." of each datagram of that kind, as camera_sim logs them.
    std::vector<std::string> bytes_of(recording::Kind kind) const;
    uint64_t dropped() const;  // events the Dropped records count
};

// The only recording made in `folder` (FACEDET_RECORD's).
RecordedRun read_recorded_run(const std::string &folder);

// The bytes of camera_sim's "rx" lines (packets received) or of its "tx"
// lines that were sent (replies), in order.
std::vector<std::string> sim_bytes(const std::string &simLog, const std::string &event);

// Frame log lines "<source index> <pts> taken <port>" of the frames taken: {index, pts}.
std::vector<std::pair<int, unsigned long long>> frames_taken(const std::string &frameLog);

#endif
