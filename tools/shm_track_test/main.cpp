/*
 * shm_track_test: writes a recognisable record into the shared-memory track
 * map once a second, for checking a peer process against the daemon's side.
 */
#include <cstdint>

#include "share_memory/share_memory.h"
#include "tool_cli.h"

int main(int argc, char **argv) {
    int rounds = 0;
    bool remove = false;
    CLI::App app{
        "Opens the segment (key $FACEDET_SHM_KEY, else 0x1123) and once a second writes a\n"
        "record whose floats 0..7 hold the round number and whose word 27 is 1.",
        "shm_track_test"};
    tool_cli::set_up(app, "shm_track_test [--rounds N] [--remove]");
    app.add_option("--rounds", rounds, "stop after N records (default: until interrupted)")
        ->type_name("N")
        ->check(tool_cli::whole_number(1, INT32_MAX, "a positive count"));
    app.add_flag("--remove", remove, "mark the segment for removal when done");
    if (const int status = tool_cli::parse(app, argc, argv); status >= 0) {
        return status;
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
