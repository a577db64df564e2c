/*
 * MI VENC entry points. Nothing is encoded on the PC; channels are created,
 * started and destroyed with the checks a real encoder makes.
 */
#include "host_system.h"
#include "mi_venc.h"

using host::guarded;

namespace {

constexpr MI_ModuleId_e kVenc = E_MI_MODULE_ID_VENC;

// Runs fn on the VENC state under the system lock once the channel number is
// valid and MI_SYS_Init has run.
template <typename Fn>
MI_S32 with_venc(MI_VENC_CHN chn, Fn &&fn) {
    host::System &s = host::system_state();
    std::lock_guard<std::mutex> lk(s.mu);
    if (!s.initialised) {
        return MI_VENC_ERR(E_MI_ERR_NOT_INIT);
    }
    if (chn < 0 || chn >= host::kVencChannels) {
        return MI_VENC_ERR(E_MI_ERR_INVALID_CHNID);
    }
    return host::mi_code(kVenc, fn(s.venc));
}

}  // namespace

extern "C" {

MI_S32 MI_VENC_CreateChn(MI_VENC_CHN VeChn, MI_VENC_ChnAttr_t *pstAttr) {
    return guarded(kVenc, [&]() -> MI_S32 {
        if (!pstAttr) {
            return MI_VENC_ERR(E_MI_ERR_NULL_PTR);
        }
        return with_venc(VeChn, [&](host::VencState &v) {
            if (v.created[VeChn]) {
                return static_cast<int>(E_MI_ERR_EXIST);
            }
            v.created[VeChn] = true;
            v.receiving[VeChn] = false;
            return 0;
        });
    });
}

MI_S32 MI_VENC_DestroyChn(MI_VENC_CHN VeChn) {
    return guarded(kVenc, [&] {
        return with_venc(VeChn, [&](host::VencState &v) {
            if (!v.created[VeChn]) {
                return static_cast<int>(E_MI_ERR_UNEXIST);
            }
            v.created[VeChn] = false;
            v.receiving[VeChn] = false;
            return 0;
        });
    });
}

MI_S32 MI_VENC_StartRecvPic(MI_VENC_CHN VeChn) {
    return guarded(kVenc, [&] {
        return with_venc(VeChn, [&](host::VencState &v) {
            if (!v.created[VeChn]) {
                return static_cast<int>(E_MI_ERR_UNEXIST);
            }
            v.receiving[VeChn] = true;
            return 0;
        });
    });
}

MI_S32 MI_VENC_StopRecvPic(MI_VENC_CHN VeChn) {
    return guarded(kVenc, [&] {
        return with_venc(VeChn, [&](host::VencState &v) {
            if (!v.created[VeChn]) {
                return static_cast<int>(E_MI_ERR_UNEXIST);
            }
            v.receiving[VeChn] = false;
            return 0;
        });
    });
}

}  // extern "C"
