// A private runtime folder and shared-memory key for this test process, set in
// the environment before the daemon's code reads them (it does so once).
#ifndef FACEDET_TEST_IPC_ENV_H
#define FACEDET_TEST_IPC_ENV_H

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>

// Creates the folder and sets FACEDET_RUNTIME_DIR and FACEDET_SHM_KEY on the
// first call; returns the folder. Call it before anything of the daemon.
const std::string &ipc_runtime_dir();

// The key set for this process (unique among running processes).
key_t ipc_shm_key();

// Removes the segment of ipc_shm_key(), if any.
void ipc_remove_segment();

// Polls `done` every millisecond until it holds (true) or `limit` passes (false).
bool eventually(const std::function<bool()> &done,
                std::chrono::milliseconds limit = std::chrono::seconds(10));

#endif
