/*
 * The daemon's own state for the logic the frame loop runs: automatic gamma's
 * handshake state over its globals and the loop's offset tables, and the
 * shared-memory segment as the gamma record's reader and writer. The logic
 * itself takes its state explicitly, so that tests give it their own.
 */
#ifndef FACEDET_FRAME_STATE_H
#define FACEDET_FRAME_STATE_H

#include "faceDet/auto_gamma.h"

// cur_isuse, pre_isuse, reverseFlag, appliedOffsets and newOffsets.
GammaState &daemon_gamma_state();

// Through the shared-memory track map (its 3 ms timed lock).
extern const GammaIo kShmGammaIo;

#endif
