/*
 * MI system module entry points: set-up, time stamps, bindings, port depths,
 * descriptors and frame buffers.
 */
#include <cstdio>
#include <cstring>

#include "host_system.h"
#include "mi_sys.h"

using host::guarded;
using host::mi_code;

namespace {

constexpr MI_ModuleId_e kSys = E_MI_MODULE_ID_SYS;

bool initialised() {
    host::System &s = host::system_state();
    std::lock_guard<std::mutex> lk(s.mu);
    return s.initialised;
}

// VIF output ports are accepted where a VPE port is, but feed nothing here.
bool valid_vif_port(const MI_SYS_ChnPort_t &p) {
    return p.u32DevId < static_cast<MI_U32>(host::kVifDevices) &&
           p.u32ChnId < static_cast<MI_U32>(host::kVifChannels) &&
           p.u32PortId < static_cast<MI_U32>(host::kVifPorts);
}

}  // namespace

extern "C" {

MI_S32 MI_SYS_Init(void) {
    return guarded(kSys, [] { return host::system_init(); });
}

MI_S32 MI_SYS_Exit(void) {
    return guarded(kSys, [] { return host::system_exit(); });
}

MI_S32 MI_SYS_GetVersion(MI_SYS_Version_t *pstVersion) {
    return guarded(kSys, [&]() -> MI_S32 {
        if (!pstVersion) {
            return MI_SYS_ERR(E_MI_ERR_NULL_PTR);
        }
        if (!initialised()) {
            return MI_SYS_ERR(E_MI_ERR_NOT_INIT);
        }
        std::memset(pstVersion, 0, sizeof *pstVersion);
        std::snprintf(reinterpret_cast<char *>(pstVersion->u8Version), sizeof pstVersion->u8Version,
                      "host-emulation 1.0");
        return MI_SUCCESS;
    });
}

// Works before MI_SYS_Init too: it is only the clock.
MI_S32 MI_SYS_GetCurPts(MI_U64 *pu64Pts) {
    if (!pu64Pts) {
        return MI_SYS_ERR(E_MI_ERR_NULL_PTR);
    }
    *pu64Pts = host::current_pts();
    return MI_SUCCESS;
}

// Accepted but without effect: the time stamps stay on the platform clock
// (pace_clock.h) because other tools on the PC compare frame times with it.
MI_S32 MI_SYS_InitPtsBase(MI_U64) {
    return guarded(kSys, [] { return initialised() ? MI_SUCCESS : MI_SYS_ERR(E_MI_ERR_NOT_INIT); });
}

MI_S32 MI_SYS_SyncPts(MI_U64) {
    return guarded(kSys, [] { return initialised() ? MI_SUCCESS : MI_SYS_ERR(E_MI_ERR_NOT_INIT); });
}

// Bindings connect hardware units; the emulation feeds VPE channel 0 directly
// from its source, so they are only checked.
MI_S32 MI_SYS_BindChnPort2(MI_SYS_ChnPort_t *pstSrcChnPort, MI_SYS_ChnPort_t *pstDstChnPort, MI_U32, MI_U32,
                           MI_SYS_BindType_e, MI_U32) {
    return guarded(kSys, [&]() -> MI_S32 {
        if (!pstSrcChnPort || !pstDstChnPort) {
            return MI_SYS_ERR(E_MI_ERR_NULL_PTR);
        }
        return initialised() ? MI_SUCCESS : MI_SYS_ERR(E_MI_ERR_NOT_INIT);
    });
}

MI_S32 MI_SYS_UnBindChnPort(MI_SYS_ChnPort_t *pstSrcChnPort, MI_SYS_ChnPort_t *pstDstChnPort) {
    return guarded(kSys, [&]() -> MI_S32 {
        if (!pstSrcChnPort || !pstDstChnPort) {
            return MI_SYS_ERR(E_MI_ERR_NULL_PTR);
        }
        return initialised() ? MI_SUCCESS : MI_SYS_ERR(E_MI_ERR_NOT_INIT);
    });
}

MI_S32 MI_SYS_SetChnOutputPortDepth(MI_SYS_ChnPort_t *pstChnPort, MI_U32 u32UserFrameDepth,
                                    MI_U32 u32BufQueueDepth) {
    return guarded(kSys, [&]() -> MI_S32 {
        if (!pstChnPort) {
            return MI_SYS_ERR(E_MI_ERR_NULL_PTR);
        }
        const std::shared_ptr<host::Pipeline> p = host::current_pipeline();
        if (!p) {
            return MI_SYS_ERR(E_MI_ERR_NOT_INIT);
        }
        if (pstChnPort->eModId == E_MI_MODULE_ID_VIF) {
            return valid_vif_port(*pstChnPort) ? MI_SUCCESS : MI_SYS_ERR(E_MI_ERR_ILLEGAL_PARAM);
        }
        return mi_code(kSys, p->set_depth(*pstChnPort, u32UserFrameDepth, u32BufQueueDepth));
    });
}

MI_S32 MI_SYS_GetFd(MI_SYS_ChnPort_t *pstChnPort, MI_S32 *ps32Fd) {
    return guarded(kSys, [&]() -> MI_S32 {
        if (!pstChnPort || !ps32Fd) {
            return MI_SYS_ERR(E_MI_ERR_NULL_PTR);
        }
        const std::shared_ptr<host::Pipeline> p = host::current_pipeline();
        if (!p) {
            return MI_SYS_ERR(E_MI_ERR_NOT_INIT);
        }
        return mi_code(kSys, p->get_fd(*pstChnPort, ps32Fd));
    });
}

MI_S32 MI_SYS_CloseFd(MI_S32 s32ChnPortFd) {
    return guarded(kSys, [&]() -> MI_S32 {
        const std::shared_ptr<host::Pipeline> p = host::current_pipeline();
        if (!p) {
            return MI_SYS_ERR(E_MI_ERR_NOT_INIT);
        }
        return mi_code(kSys, p->close_fd(s32ChnPortFd));
    });
}

MI_S32 MI_SYS_ChnOutputPortGetBuf(MI_SYS_ChnPort_t *pstChnPort, MI_SYS_BufInfo_t *pstBufInfo,
                                  MI_SYS_BUF_HANDLE *phHandle) {
    return guarded(kSys, [&]() -> MI_S32 {
        const std::shared_ptr<host::Pipeline> p = host::current_pipeline();
        if (!p) {
            return MI_SYS_ERR(E_MI_ERR_NOT_INIT);
        }
        if (!pstChnPort || !pstBufInfo || !phHandle) {
            return MI_SYS_ERR(E_MI_ERR_NULL_PTR);
        }
        return mi_code(kSys, p->get_buf(*pstChnPort, pstBufInfo, phHandle));
    });
}

MI_S32 MI_SYS_ChnOutputPortPutBuf(MI_SYS_BUF_HANDLE hHandle) {
    return guarded(kSys, [&]() -> MI_S32 {
        const std::shared_ptr<host::Pipeline> p = host::current_pipeline();
        if (!p) {
            return MI_SYS_ERR(E_MI_ERR_NOT_INIT);
        }
        return mi_code(kSys, p->put_buf(hHandle));
    });
}

}  // extern "C"
