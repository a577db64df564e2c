/*
 * The process-wide record of the emulation: whether MI_SYS_Init has run, the
 * VPE pipeline, and the small state of the VIF, VENC and RGN modules.
 * Internal to platform/host.
 */
#ifndef FACEDET_HOST_SYSTEM_H
#define FACEDET_HOST_SYSTEM_H

#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <optional>

#include "host_config.h"
#include "mi_rgn.h"
#include "vpe_pipeline.h"

namespace host {

constexpr int kVifDevices = 4;
constexpr int kVifChannels = 16;
constexpr int kVifPorts = 2;
constexpr int kVencChannels = 16;

struct VifState {
    bool devConfigured[kVifDevices] = {};
    bool devEnabled[kVifDevices] = {};
    bool portEnabled[kVifChannels][kVifPorts] = {};
};

struct VencState {
    bool created[kVencChannels] = {};
    bool receiving[kVencChannels] = {};
};

struct RgnState {
    bool initialised = false;
    bool havePalette = false;  // readable after MI_SYS_Exit until the next MI_SYS_Init or MI_RGN_DeInit
    MI_RGN_PaletteTable_t palette{};
};

struct System {
    std::mutex lifecycle;  // serialises MI_SYS_Init and MI_SYS_Exit; taken before mu, never inside it

    std::mutex mu;  // guards every field below
    bool initialised = false;
    // Shared so that a call in flight keeps the pipeline alive while
    // MI_SYS_Exit shuts it down; the pipeline then refuses the call.
    std::shared_ptr<Pipeline> pipeline;
    std::optional<Config> nextConfig;  // test hook: replaces the environment once
    VifState vif;
    VencState venc;
    RgnState rgn;
};

// Never destroyed, so that a thread still inside an MI call at process exit
// does not meet a destroyed mutex.
System &system_state();

// The pipeline while initialised, else null.
std::shared_ptr<Pipeline> current_pipeline();

// What MI_SYS_GetCurPts reads: the pipeline's clock, else CLOCK_MONOTONIC.
MI_U64 current_pts();

MI_S32 system_init();
MI_S32 system_exit();

// Defined beside the program's usleep (host_sleep.cpp) and called by
// system_init, so that the linker takes that unit from the archive whatever
// else defines usleep first: a sanitizer runtime linked ahead of everything
// (ThreadSanitizer's intercepts usleep) would otherwise leave it out.
void keep_program_sleep();

// Runs an MI entry point's body; nothing may escape into C callers.
template <typename Body>
MI_S32 guarded(MI_ModuleId_e module, Body &&body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc &) {
        return MI_DEF_ERR(module, MI_ERR_LEVEL_ERROR, E_MI_ERR_NOMEM);
    } catch (...) {
        return MI_DEF_ERR(module, MI_ERR_LEVEL_ERROR, E_MI_ERR_FAILED);
    }
}

// 0 stays 0, an error identifier becomes the module's full code.
inline MI_S32 mi_code(MI_ModuleId_e module, int errId) {
    return errId == 0 ? MI_SUCCESS : MI_DEF_ERR(module, MI_ERR_LEVEL_ERROR, errId);
}

}  // namespace host

#endif
