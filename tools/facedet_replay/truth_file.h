// The true faces of a clip, as a CSV `frame,person,x,y,w,h` (what
// scenario_clip --truth writes, or labels made by hand; docs/TOOLS.md,
// "Scoring against the true faces").
// Parsing is strict: a file that could be scored wrongly is refused whole,
// with the line that is wrong.
#ifndef FACEDET_REPLAY_TRUTH_FILE_H
#define FACEDET_REPLAY_TRUTH_FILE_H

#include <string>
#include <vector>

#include "replay_logs.h"

namespace replay {

struct TruthFace {
    long frame = 0;  // 0-based index of the frame in the source
    int person = 0;  // the same person keeps the same id across frames
    Box box;         // pixels of the 416x234 analysed frame
};

struct Truth {
    long frames = -1;              // labels cover source frames 0..frames-1; -1: the whole source
    long every = 1;                // only frames whose index is a multiple of this are labelled
    std::vector<TruthFace> faces;  // in frame order
    bool labelled(long frame) const {
        return frame >= 0 && frame % every == 0 && (frames < 0 || frame < frames);
    }
};

// `sourceFrames` is the source's frame count, -1 when unknown. On bad input
// returns false with *error as "line N: what is wrong" (line 0: the file as a
// whole).
bool parse_truth(const std::string &text, long sourceFrames, Truth *out, std::string *error);

}  // namespace replay

#endif
