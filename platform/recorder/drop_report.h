/*
 * The recorder's account of what it could not keep: records are dropped in
 * runs (the writer fell behind, the disk is full, the size limit is reached),
 * and each run gets one line on stderr at its start and one at its end with
 * its count, never a line per record. Only the writer thread uses it.
 */
#ifndef FACEDET_RECORDER_DROP_REPORT_H
#define FACEDET_RECORDER_DROP_REPORT_H

#include <cstddef>
#include <cstdint>

namespace recorder {

class DropReport {
  public:
    // `count` records dropped (0: a drop is known but not yet counted), for
    // `why`. True, with the line in `line`, when this starts a run.
    bool dropped(uint64_t count, const char *why, char *line, size_t size);
    // A record was written. True, with the line, when that ends a run.
    bool written(char *line, size_t size);
    // The recording ends. True, with the line, when a run is still open.
    bool finish(char *line, size_t size);

    bool in_run() const { return inRun_; }
    uint64_t total() const { return total_; }

  private:
    // The line that ends a run (format takes its count); false outside a run.
    bool end_run(const char *format, char *line, size_t size);

    bool inRun_ = false;
    uint64_t run_ = 0;
    uint64_t total_ = 0;
};

}  // namespace recorder

#endif
