#include "ipc_test_env.h"

#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <thread>

#include "temp_dir.h"

const std::string &ipc_runtime_dir() {
    // Destroyed at exit, after the last test; the receive threads never read
    // the folder again by then.
    static TempDir dir;
    static const bool ready = [] {
        setenv("FACEDET_RUNTIME_DIR", dir.path().c_str(), 1);
        setenv("FACEDET_SHM_KEY", std::to_string(ipc_shm_key()).c_str(), 1);
        return true;
    }();
    (void)ready;
    return dir.path();
}

key_t ipc_shm_key() {
    // Process ids are below 2^22: no two running test processes share a key,
    // and none meets the daemon's 0x1123.
    return static_cast<key_t>(0x52000000 + (getpid() & 0x3fffff));
}

void ipc_remove_segment() {
    int id = shmget(ipc_shm_key(), 0, 0);
    if (id >= 0) {
        shmctl(id, IPC_RMID, nullptr);
    }
}

bool eventually(const std::function<bool()> &done, std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}
