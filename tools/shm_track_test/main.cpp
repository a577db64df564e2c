/*
 * shm_track_test: writes a recognisable record into the shared-memory track
 * map once a second, for checking a peer process against the daemon's side.
 */
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "share_memory/share_memory.h"

int main(int argc, char **argv) {
    int rounds = 0;
    bool remove = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            printf(
                "usage: shm_track_test [--rounds N] [--remove]\n"
                "  Opens the segment (key $FACEDET_SHM_KEY, else 0x1123) and once a second writes a\n"
                "  record whose floats 0..7 hold the round number and whose word 27 is 1.\n"
                "  --rounds N  stop after N records (default: until interrupted)\n"
                "  --remove    mark the segment for removal when done\n");
            return 0;
        }
        if (arg == "--rounds" && i + 1 < argc) {
            char *end = nullptr;
            rounds = static_cast<int>(strtol(argv[++i], &end, 10));
            if (*end != '\0' || rounds <= 0) {
                fprintf(stderr, "shm_track_test: --rounds wants a positive count, not '%s'\n", argv[i]);
                return 2;
            }
        } else if (arg == "--remove") {
            remove = true;
        } else {
            fprintf(stderr, "shm_track_test: unknown argument '%s' (try --help)\n", arg.c_str());
            return 2;
        }
    }
    shm_track_map_test(rounds);
    if (g_msg == nullptr) {
        return 1;  // the segment could not be opened; the module said why
    }
    shm_track_map_detach();
    if (remove) {
        shm_track_map_remove();
    }
    return 0;
}
