// How well the camera framed the true faces of a clip: pure arithmetic over
// the delivered frames (each with the camera's view at its time), the moves
// the daemon sent and the truth file. The meaning of every figure is in
// docs/TOOLS.md ("Scoring against the true faces").
#ifndef FACEDET_REPLAY_FRAMING_SCORE_H
#define FACEDET_REPLAY_FRAMING_SCORE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "replay_logs.h"
#include "truth_file.h"

namespace replay {

// One delivered frame.
struct ScoreFrame {
    long sourceIndex = 0;  // counting across loops
    int64_t tUs = 0;
    bool hasPerson = false;  // the daemon printed its chosen person for this frame
    Box person;              // personCenterRect, 1920x1080
    SimState view;           // the camera at tUs
};

// A move the daemon sent, dated by the frame it was processing.
struct ScoreMove {
    int64_t tUs = 0;
    bool fullView = false;               // the reset after the face-less frames
    int pan = 0, tilt = 0, zoom = 1920;  // the framing sent (pan right, tilt up, zoom = width)
};

struct FramingScore {
    int framesScored = 0, framesWithPerson = 0;
    std::optional<double> faceInView, faceInCentreThird;
    std::optional<double> centreOffsetMedian, centreOffsetP95, faceHeightMedian, faceHeightP95;
    std::optional<double> movesPerMinute, reversalShare, entryToFrameS, exitToFullViewS,
        targetChangesPerMinute;
    // Per scored frame, for the timeline: the followed face (1920x1080), or none.
    std::vector<int64_t> followedTimes;
    std::vector<std::optional<Box>> followedFaces;
};

// `sourceFrames` (-1: unknown) folds the frames of a looping run onto the labels.
FramingScore score_framing(const Truth &truth, const std::vector<ScoreFrame> &frames,
                           const std::vector<ScoreMove> &moves, long sourceFrames);

// The scoring inputs from the parsed logs: every delivered frame of the frame
// log with the camera's state at it; the taken ones matched in order with the
// daemon's frames, and a dropped one with the choice of the last one taken.
void score_inputs(const DaemonLog &daemon, const std::vector<FrameLogEntry> &frameLog, const SimLog &sim,
                  std::vector<ScoreFrame> *frames, std::vector<ScoreMove> *moves);

}  // namespace replay

#endif
