// The segment: open, timed lock, write, read, detach and remove.
#include <sys/ipc.h>
#include <sys/shm.h>
#include <time.h>

#include <cstdio>
#include <cstring>

#include "dbgout/runtime_env.h"
#include "share_memory/share_memory.h"
#include "share_memory/shm_lock.h"

TrackShareMap *g_msg = nullptr;
int g_frameSize = 0;

namespace {

// Frame thread only, like the segment itself.
struct {
    int shmId = -1;
    void *address = nullptr;
    int writeCalls = 0;
    int writeFailures = 0;
    int readFailures = 0;
} s_map;

// shmat reports failure as (void *)-1; null is checked as well.
bool attach_failed(void *address) {
    return address == nullptr || address == reinterpret_cast<void *>(-1);
}

// Attaches the segment s_map.shmId names; null (after "fail to shmat") when it cannot.
TrackShareMap *attach_segment() {
    void *address = shmat(s_map.shmId, nullptr, 0);
    if (attach_failed(address)) {
        printf("fail to shmat");
        s_map.address = nullptr;
        return nullptr;
    }
    s_map.address = address;
    g_msg = static_cast<TrackShareMap *>(address);
    return g_msg;
}

int timed_lock(TrackShareMap *map) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return shm_lock_until(&map->mutex, shm_lock_deadline(now));
}

}  // namespace

struct timespec shm_lock_deadline(struct timespec now) {
    struct timespec deadline = now;
    deadline.tv_nsec += 3000000;
    if (deadline.tv_nsec > 999999999) {
        deadline.tv_sec += 1;
        deadline.tv_nsec = now.tv_nsec - 997000000;
    }
    return deadline;
}

void *shm_track_map_open() {
    s_map.shmId = shmget(shm_key(), kTrackMapBytes, IPC_CREAT | 0666);
    if (s_map.shmId < 0) {
        printf("fail to shmget\n");
        return nullptr;
    }
    TrackShareMap *map = attach_segment();
    if (map == nullptr) {
        return nullptr;
    }
    map->dataSize = kTrackDataBytes;
    map->written = 0;
    // Also over a segment of an earlier run: a lock left held by a process that
    // died would otherwise block every write.
    shm_lock_init(&map->mutex);
    return map;
}

void *creat_track_share_map() {
    printf("enter creat_track_share_map\n");
    g_frameSize = kTrackMapBytes;
    s_map.shmId = shmget(shm_key(), kTrackMapBytes, 0666);
    printf("enter shmget\n");
    if (s_map.shmId < 0) {
        printf("fail to shmget");
        return nullptr;
    }
    return attach_segment();
}

int shm_track_map_write(const void *record) {
    ++s_map.writeCalls;
    if (s_map.address == nullptr) {
        return 0;
    }
    if (timed_lock(g_msg) != 0) {
        ++s_map.writeFailures;
        printf("@@@@@@@@@@@@@@@@@@@@@@@@@@@@%d\n", s_map.writeFailures);
        return 0;
    }
    memcpy(g_msg->data, record, kTrackDataBytes);
    g_msg->written = 1;
    shm_lock_release(&g_msg->mutex);
    return 1;
}

int shm_track_map_read(void *record) {
    if (g_msg == nullptr) {
        return 0;  // nothing attached: there is no lock to take
    }
    if (timed_lock(g_msg) != 0) {
        ++s_map.readFailures;
        printf("@@@@@@@@@@@@@@@@@@@@@@@@@@@@%d\n", s_map.readFailures);
        return 0;
    }
    g_msg = static_cast<TrackShareMap *>(s_map.address);
    memcpy(record, g_msg->data, kTrackDataBytes);
    shm_lock_release(&g_msg->mutex);
    return 1;
}

int shm_track_map_detach() {
    if (shmdt(s_map.address) < 0) {
        printf("failed to shmdt\n");
        return -1;
    }
    // Later writes and reads find nothing attached instead of a stale address.
    s_map.address = nullptr;
    g_msg = nullptr;
    return 0;
}

int shm_track_map_remove() {
    if (shmctl(s_map.shmId, IPC_RMID, nullptr) < 0) {
        printf("failed to shmctl\n");
        return -1;
    }
    return 0;
}

bool shm_track_map_lock(TrackShareMap *map) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return shm_lock_until(&map->mutex, shm_lock_deadline(now)) == 0;
}

void shm_track_map_unlock(TrackShareMap *map) {
    shm_lock_release(&map->mutex);
}
