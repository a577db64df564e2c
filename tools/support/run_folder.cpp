#include "run_folder.h"

#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace fs = std::filesystem;

bool make_run_folder(const std::string &pattern, unsigned keyBase, unsigned keyMask, RunFolder *folder,
                     std::vector<std::string> *unlinkedModels, std::string *error) {
    std::vector<char> dir(pattern.begin(), pattern.end());
    dir.push_back('\0');
    if (mkdtemp(dir.data()) == nullptr) {
        *error = std::string("cannot create a runtime folder: ") + std::strerror(errno);
        return false;
    }
    folder->dir = dir.data();
    folder->shmKey = std::to_string(keyBase + (static_cast<unsigned>(getpid()) & keyMask));
    for (const char *model : {"slim-320-quant-ADMM-50.mnn", "slim-320.onnx"}) {
        std::error_code linkError;
        fs::create_symlink(fs::path(FACEDET_SHARED_DIR) / "models" / model, fs::path(folder->dir) / model,
                           linkError);
        if (linkError) {
            unlinkedModels->push_back(model);
        }
    }
    return true;
}

void remove_run_folder(RunFolder *folder) {
    if (!folder->shmKey.empty()) {
        if (const int id = shmget(static_cast<key_t>(std::stol(folder->shmKey)), 0, 0); id >= 0) {
            shmctl(id, IPC_RMID, nullptr);
        }
        folder->shmKey.clear();
    }
    if (!folder->dir.empty()) {
        std::error_code ignored;
        fs::remove_all(folder->dir, ignored);
        folder->dir.clear();
    }
}

std::string frame_cost_text(double ms) {
    char text[32];
    snprintf(text, sizeof text, "%.6f", ms);
    return text;
}
