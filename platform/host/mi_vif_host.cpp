/*
 * MI VIF entry points. The emulation has no sensor interface: frames enter
 * at VPE channel 0. These calls are checked and their on/off state kept, so
 * that code driving a real capture path runs unchanged.
 */
#include "host_system.h"
#include "mi_vif.h"

using host::guarded;

namespace {

constexpr MI_ModuleId_e kVif = E_MI_MODULE_ID_VIF;

// Runs fn on the VIF state under the system lock once MI_SYS_Init has run.
template <typename Fn>
MI_S32 with_vif(Fn &&fn) {
    host::System &s = host::system_state();
    std::lock_guard<std::mutex> lk(s.mu);
    if (!s.initialised) {
        return MI_VIF_ERR(E_MI_ERR_NOT_INIT);
    }
    return host::mi_code(kVif, fn(s.vif));
}

bool valid_dev(MI_VIF_DEV dev) {
    return dev >= 0 && dev < host::kVifDevices;
}

int check_chn_port(MI_VIF_CHN chn, MI_VIF_PORT port) {
    if (chn < 0 || chn >= host::kVifChannels) {
        return E_MI_ERR_INVALID_CHNID;
    }
    return (port < 0 || port >= host::kVifPorts) ? E_MI_ERR_ILLEGAL_PARAM : 0;
}

}  // namespace

extern "C" {

MI_S32 MI_VIF_SetDevAttr(MI_VIF_DEV u32VifDev, MI_VIF_DevAttr_t *pstDevAttr) {
    return guarded(kVif, [&]() -> MI_S32 {
        if (!pstDevAttr) {
            return MI_VIF_ERR(E_MI_ERR_NULL_PTR);
        }
        return with_vif([&](host::VifState &v) {
            if (!valid_dev(u32VifDev)) {
                return static_cast<int>(E_MI_ERR_INVALID_DEVID);
            }
            v.devConfigured[u32VifDev] = true;
            return 0;
        });
    });
}

MI_S32 MI_VIF_EnableDev(MI_VIF_DEV u32VifDev) {
    return guarded(kVif, [&] {
        return with_vif([&](host::VifState &v) {
            if (!valid_dev(u32VifDev)) {
                return static_cast<int>(E_MI_ERR_INVALID_DEVID);
            }
            v.devEnabled[u32VifDev] = true;
            return 0;
        });
    });
}

MI_S32 MI_VIF_DisableDev(MI_VIF_DEV u32VifDev) {
    return guarded(kVif, [&] {
        return with_vif([&](host::VifState &v) {
            if (!valid_dev(u32VifDev)) {
                return static_cast<int>(E_MI_ERR_INVALID_DEVID);
            }
            v.devEnabled[u32VifDev] = false;
            return 0;
        });
    });
}

MI_S32 MI_VIF_SetChnPortAttr(MI_VIF_CHN u32VifChn, MI_VIF_PORT u32ChnPort, MI_VIF_ChnPortAttr_t *pstAttr) {
    return guarded(kVif, [&]() -> MI_S32 {
        if (!pstAttr) {
            return MI_VIF_ERR(E_MI_ERR_NULL_PTR);
        }
        return with_vif([&](host::VifState &) { return check_chn_port(u32VifChn, u32ChnPort); });
    });
}

MI_S32 MI_VIF_EnableChnPort(MI_VIF_CHN u32VifChn, MI_VIF_PORT u32ChnPort) {
    return guarded(kVif, [&] {
        return with_vif([&](host::VifState &v) {
            const int err = check_chn_port(u32VifChn, u32ChnPort);
            if (err == 0) {
                v.portEnabled[u32VifChn][u32ChnPort] = true;
            }
            return err;
        });
    });
}

MI_S32 MI_VIF_DisableChnPort(MI_VIF_CHN u32VifChn, MI_VIF_PORT u32ChnPort) {
    return guarded(kVif, [&] {
        return with_vif([&](host::VifState &v) {
            const int err = check_chn_port(u32VifChn, u32ChnPort);
            if (err == 0) {
                v.portEnabled[u32VifChn][u32ChnPort] = false;
            }
            return err;
        });
    });
}

}  // extern "C"
