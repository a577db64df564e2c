/*
 * A private place for one run of the daemon beside its peers: a runtime
 * folder for their sockets and logs, with the detector's models linked in
 * (the daemon loads them from its working directory, as on the camera), and
 * a shared-memory key of the tool's own, so that a camera process's segment
 * is never touched.
 */
#ifndef FACEDET_TOOLS_RUN_FOLDER_H
#define FACEDET_TOOLS_RUN_FOLDER_H

#include <string>
#include <vector>

struct RunFolder {
    std::string dir;     // empty until made, and again once removed
    std::string shmKey;  // decimal, as FACEDET_SHM_KEY takes it
    std::string path(const char *name) const { return dir + "/" + name; }
};

// Makes the folder from `pattern` (ending in XXXXXX; the socket paths in it
// must stay short) and the key `keyBase` plus this process's id masked by
// `keyMask`. Models that cannot be linked are named in *unlinkedModels. False
// with *error (one line) when the folder cannot be made.
bool make_run_folder(const std::string &pattern, unsigned keyBase, unsigned keyMask, RunFolder *folder,
                     std::vector<std::string> *unlinkedModels, std::string *error);

// Removes the folder and the segment the daemon leaves behind (as it does on
// the camera; this one is private to the run). Does nothing the second time.
void remove_run_folder(RunFolder *folder);

// A camera's frame cost as FACEDET_FRAME_COST_MS takes it: plain decimals,
// never an exponent.
std::string frame_cost_text(double ms);

#endif
