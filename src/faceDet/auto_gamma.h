/*
 * Automatic gamma: once per analysed frame, the handshake with the
 * image-tuning process through the gamma record in shared memory and, when
 * that process asks for it (mode 1), a tone curve computed from the frame's
 * luma histogram, the scene's statistics and the verdict whether the curve may
 * be used. This program only computes the curve; the peer applies it.
 *
 * While the peer has a curve applied (isuse 1) the histogram shows the
 * corrected picture, so the statistics are taken on the histogram mapped back
 * through the applied curve's offsets: the verdict judges the scene, not the
 * correction. The curve itself is always computed from the frame's histogram.
 *
 * The arithmetic is kept exactly as it is, float where float is written and
 * double where double is written, because the peer's tuning was made against
 * these very numbers.
 *
 * Frame thread only.
 */
#ifndef FACEDET_AUTO_GAMMA_H
#define FACEDET_AUTO_GAMMA_H

#include <cstdint>

#include "faceDet/gamma_record.h"

// The analysis frame's pixel count, the fixed divisor of all statistics.
constexpr int kGammaPixels = 97344;  // 416 x 234

// What the handshake keeps from frame to frame. The daemon's state lives in
// the globals below; tests build their own.
struct GammaState {
    int32_t &cur_isuse;       // isuse of this frame's record
    int32_t &pre_isuse;       // isuse of the previous frame's record
    uint8_t &reverseFlag;     // 1 while the peer has a curve applied
    int32_t *appliedOffsets;  // 256: curve[i] - i of the curve the peer has applied
    int32_t *newOffsets;      // 256: curve[i] - i of the last accepted curve
};

// The daemon's state, under the names of the traces.
extern int32_t cur_isuse;
extern int32_t pre_isuse;
extern uint8_t reverseFlag;

// Statistics of a luma histogram, as stored in the record.
struct GammaStats {
    int32_t mean;
    int32_t stdDev;
    int32_t p1;
    int32_t p10;
    int32_t p50;
    int32_t p90;
    int32_t p99;
};

// Mean, standard deviation and the 1/10/50/90/99 percentiles of W, a histogram
// of pixel counts (each bin 0..kGammaPixels), with kGammaPixels as divisor. A
// bin that crosses several percentile limits sets only the lowest of them; the
// others go to the following bins, one a bin. Unreached percentiles are 0.
void gamma_statistics(const float W[kGammaLevels], GammaStats *stats);

// The tone curve of a histogram of pixel counts. Divides hist by kGammaPixels
// in place (always), then fills curve[0..255] and returns true; returns false
// and leaves curve untouched when the histogram is flat (all bins equal).
// Levels 0..19 are the identity; the curve is blended with the identity by
// strength x 0.35 / 100, fading in over levels 20..49.
bool gamma_curve(float hist[kGammaLevels], int32_t strength, int32_t curve[kGammaLevels]);

// Whether a curve may be used in a scene of these statistics: a range set for
// ordinary scenes, and a second one for bright scenes when the first does not
// hold.
bool gamma_verdict(const GammaStats &stats);

// Steps 2 to 4 of a frame: takes the record's isuse into the state, clears
// both offset tables when the peer dropped its curve, and takes the last
// accepted offsets as applied when the peer reports the curve in use.
void gamma_handshake(GammaState &state, const GammaRecord &record);

// Answers a request on `record`: statistics (on hist mapped back through the
// applied offsets while reverseFlag is 1), curve from hist (normalised in
// place), verdict, newOffsets and `valid`. A flat histogram leaves curve and
// statistics as they were and sets valid 0. Returns valid.
int32_t gamma_answer(GammaState &state, GammaRecord &record, float hist[kGammaLevels]);

// How the step reaches the segment; 1 on success, 0 on failure. The frame
// loop passes the shared-memory track map (its 3 ms timed lock).
struct GammaIo {
    int (*read)(void *record);
    int (*write)(const void *record);
};

// What a frame's step did.
enum GammaStepResult {
    kGammaNoRequest = 0,   // mode was not 1: no answer, nothing written
    kGammaAnswered = 1,    // answered and written back
    kGammaWriteFailed = 2  // answered, the write did not go through
};

// One analysed frame: reads the record into threadCopy (a failed read leaves
// its previous content), does the handshake and, on mode 1, answers and writes
// the record back. hist is the frame's histogram (normalised in place when
// answering). Allocates nothing.
GammaStepResult auto_gamma_step(GammaState &state, GammaRecord &threadCopy, float hist[kGammaLevels],
                                const GammaIo &io);

#endif
