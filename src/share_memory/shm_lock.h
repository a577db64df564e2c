// The segment's lock slot: init, 3 ms timed lock, unlock. Internal to this folder.
#ifndef FACEDET_SHM_LOCK_H
#define FACEDET_SHM_LOCK_H

#include "share_memory/share_memory.h"

// Initialises the slot as an unlocked process-shared lock.
void shm_lock_init(ShmLockSlot *slot);
// Locks, waiting until the absolute real-time `deadline`; 0 or an error number
// (ETIMEDOUT when the holder kept it).
int shm_lock_until(ShmLockSlot *slot, const struct timespec &deadline);
void shm_lock_release(ShmLockSlot *slot);

#endif
