/*
 * Where the daemon keeps its runtime files, and which shared-memory key it uses.
 *
 * On the camera every socket and the trace file live in /dev and the segment
 * key is fixed. FACEDET_RUNTIME_DIR and FACEDET_SHM_KEY move them, so that
 * several daemons (tests, replays) can run side by side without root.
 */
#ifndef FACEDET_RUNTIME_ENV_H
#define FACEDET_RUNTIME_ENV_H

#include <sys/types.h>

#include <string>

constexpr key_t kDefaultShmKey = 0x1123;

// "/dev/<name>", or "<FACEDET_RUNTIME_DIR>/<name>". Read once per process.
std::string runtime_path(const char *name);

// The runtime directory alone ("/dev" by default).
const std::string &runtime_dir();

// Parses a key given in decimal or 0x-hex; false when the text is not one.
bool parse_shm_key(const char *text, key_t *key);

// The segment key: FACEDET_SHM_KEY when set, else 0x1123. Read once per process.
key_t shm_key();

// Checks the FACEDET_* settings the daemon reads itself; on a bad value writes
// one line to stderr naming it and returns false.
bool runtime_env_valid();

#endif
