#include "faceDet/frame_state.h"

#include "faceDet/get_stream_thread.h"
#include "share_memory/share_memory.h"

static_assert(sizeof(GammaRecord) == kTrackDataBytes, "a gamma record fills the segment's data area");

const GammaIo kShmGammaIo = {shm_track_map_read, shm_track_map_write};

GammaState &daemon_gamma_state() {
    // The tables are never resized, so their storage stays where it is.
    static GammaState state{cur_isuse, pre_isuse, reverseFlag, appliedOffsets.data(), newOffsets.data()};
    return state;
}
