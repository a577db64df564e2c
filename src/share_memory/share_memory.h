/*
 * The shared-memory track map: one System V segment through which the daemon
 * exchanges a 1180-byte record with a peer process of the camera, under a
 * process-shared lock that the frame loop waits on for at most 3 ms.
 *
 * The segment's layout is the contract with the peer (1212 bytes):
 *   offset 0    written flag, 0 after initialisation, 1 after every write
 *   offset 4    the lock, 24 bytes
 *   offset 28   data size, 1180
 *   offset 32   the data area (opaque here)
 * The key is shm_key() (0x1123 unless FACEDET_SHM_KEY says otherwise).
 */
#ifndef FACEDET_SHARE_MEMORY_H
#define FACEDET_SHARE_MEMORY_H

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <type_traits>

constexpr int kTrackMapBytes = 1212;
constexpr int kTrackDataBytes = 1180;

// The lock slot holds the camera's own pthread_mutex_t, 24 bytes in its 32-bit
// ABI. On a 64-bit PC that type is 40 bytes and cannot sit in the slot, so
// there the slot holds a futex word with the same behaviour (process-shared,
// locked with an absolute real-time deadline); the layout stays the same.
struct ShmFutexLock {
    uint32_t word;  // 0 free, 1 locked, 2 locked with waiters
    uint8_t unused[20];
};
using ShmLockSlot = std::conditional_t<sizeof(pthread_mutex_t) == 24, pthread_mutex_t, ShmFutexLock>;

struct TrackShareMap {
    int32_t written;
    ShmLockSlot mutex;
    int32_t dataSize;
    uint8_t data[kTrackDataBytes];
};
static_assert(sizeof(ShmLockSlot) == 24, "the lock slot is 24 bytes");
static_assert(offsetof(TrackShareMap, written) == 0, "written flag at 0");
static_assert(offsetof(TrackShareMap, mutex) == 4, "lock at 4");
static_assert(offsetof(TrackShareMap, dataSize) == 28, "data size at 28");
static_assert(offsetof(TrackShareMap, data) == 32, "data area at 32");
static_assert(sizeof(TrackShareMap) == kTrackMapBytes, "the segment is 1212 bytes");

// The attached segment, used to reach the lock; null until attached.
extern TrackShareMap *g_msg;
// 1212 once creat_track_share_map has run.
extern int g_frameSize;

// Creates or opens the segment, attaches it and initialises the size, the
// written flag and the lock (on every start, also over a segment left from an
// earlier run). Returns the attach address or null.
void *shm_track_map_open();

// Opens and attaches an existing segment without initialising anything.
// Returns the attach address or null.
void *creat_track_share_map();

// Copies kTrackDataBytes from `record` into the data area and sets the written
// flag. 1 on success; 0 when not attached or the lock was not had in 3 ms.
int shm_track_map_write(const void *record);

// Copies the data area into `record`. 1 on success, 0 when the lock was not
// had in 3 ms (or nothing is attached).
int shm_track_map_read(void *record);

// Detaches the segment (the segment itself stays). 0 or -1.
int shm_track_map_detach();

// Marks the segment for removal. 0 or -1.
int shm_track_map_remove();

// The deadline of the timed lock: `now` (real-time clock) plus 3 ms, carried
// into the seconds when the nanoseconds pass 999999999.
struct timespec shm_lock_deadline(struct timespec now);

// The peer's side of the lock of a segment it attached itself: taken with the
// daemon's 3 ms limit (false when the holder kept it), and given back.
bool shm_track_map_lock(TrackShareMap *map);
void shm_track_map_unlock(TrackShareMap *map);

// The module's exercise: opens the segment, then once a second writes a record
// whose floats 0 to 7 hold the round number and whose word 27 is 1, printing
// the outcome and the count. `rounds` <= 0 runs until the process is stopped.
void shm_track_map_test(int rounds);

#endif
