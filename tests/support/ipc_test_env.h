// A private runtime folder and shared-memory key for this test process, set in
// the environment before the daemon's code reads them (it does so once).
#ifndef FACEDET_TEST_IPC_ENV_H
#define FACEDET_TEST_IPC_ENV_H

#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "process_helpers.h"
#include "temp_dir.h"

// The key of this process: process ids are below 2^22, so no two running test
// processes share one, and none meets the daemon's 0x1123.
inline key_t ipc_shm_key() {
    return static_cast<key_t>(0x52000000 + (getpid() & 0x3fffff));
}

// Creates the folder and sets FACEDET_RUNTIME_DIR and FACEDET_SHM_KEY on the
// first call; returns the folder. Call it before anything of the daemon.
inline const std::string &ipc_runtime_dir() {
    static TempDir dir;  // removed at exit, after the last test
    static const bool ready = setenv("FACEDET_RUNTIME_DIR", dir.path().c_str(), 1) == 0 &&
                              setenv("FACEDET_SHM_KEY", std::to_string(ipc_shm_key()).c_str(), 1) == 0;
    (void)ready;
    return dir.path();
}

// Removes the segment of ipc_shm_key(), if any.
inline void ipc_remove_segment() {
    const int id = shmget(ipc_shm_key(), 0, 0);
    if (id >= 0) {
        shmctl(id, IPC_RMID, nullptr);
    }
}

#endif
