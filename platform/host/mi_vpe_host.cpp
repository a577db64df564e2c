/*
 * MI VPE entry points: channels and output ports of the emulated pipeline.
 */
#include "host_system.h"
#include "mi_vpe.h"

using host::guarded;
using host::mi_code;

namespace {

constexpr MI_ModuleId_e kVpe = E_MI_MODULE_ID_VPE;

// Runs fn on the pipeline, or reports that MI_SYS_Init has not run.
template <typename Fn>
MI_S32 with_pipeline(Fn &&fn) {
    const std::shared_ptr<host::Pipeline> p = host::current_pipeline();
    if (!p) {
        return MI_VPE_ERR(E_MI_ERR_NOT_INIT);
    }
    return mi_code(kVpe, fn(*p));
}

}  // namespace

extern "C" {

MI_S32 MI_VPE_CreateChannel(MI_VPE_CHANNEL VpeCh, MI_VPE_ChannelAttr_t *pstVpeChAttr) {
    return guarded(kVpe, [&]() -> MI_S32 {
        if (!pstVpeChAttr) {
            return MI_VPE_ERR(E_MI_ERR_NULL_PTR);
        }
        return with_pipeline([&](host::Pipeline &p) { return p.create_channel(VpeCh); });
    });
}

MI_S32 MI_VPE_DestroyChannel(MI_VPE_CHANNEL VpeCh) {
    return guarded(
        kVpe, [&] { return with_pipeline([&](host::Pipeline &p) { return p.destroy_channel(VpeCh); }); });
}

// Channel parameters tune the image pipeline, which the emulation does not have.
MI_S32 MI_VPE_SetChannelParam(MI_VPE_CHANNEL VpeCh, MI_VPE_ChannelPara_t *pstVpeParam) {
    return guarded(kVpe, [&]() -> MI_S32 {
        if (!pstVpeParam) {
            return MI_VPE_ERR(E_MI_ERR_NULL_PTR);
        }
        return with_pipeline([&](host::Pipeline &) {
            return (VpeCh < 0 || VpeCh >= host::kVpeChannels) ? E_MI_ERR_INVALID_CHNID : 0;
        });
    });
}

MI_S32 MI_VPE_StartChannel(MI_VPE_CHANNEL VpeCh) {
    return guarded(kVpe,
                   [&] { return with_pipeline([&](host::Pipeline &p) { return p.start_channel(VpeCh); }); });
}

MI_S32 MI_VPE_StopChannel(MI_VPE_CHANNEL VpeCh) {
    return guarded(kVpe,
                   [&] { return with_pipeline([&](host::Pipeline &p) { return p.stop_channel(VpeCh); }); });
}

MI_S32 MI_VPE_GetPortMode(MI_VPE_CHANNEL VpeCh, MI_VPE_PORT VpePort, MI_VPE_PortMode_t *pstVpeMode) {
    return guarded(kVpe, [&]() -> MI_S32 {
        const std::shared_ptr<host::Pipeline> p = host::current_pipeline();
        if (!p) {
            return MI_VPE_ERR(E_MI_ERR_NOT_INIT);
        }
        MI_S32 faultCode = 0;
        const int err = p->get_port_mode(VpeCh, VpePort, pstVpeMode, &faultCode);
        return err < 0 ? faultCode : mi_code(kVpe, err);
    });
}

MI_S32 MI_VPE_SetPortMode(MI_VPE_CHANNEL VpeCh, MI_VPE_PORT VpePort, MI_VPE_PortMode_t *pstVpeMode) {
    return guarded(kVpe, [&]() -> MI_S32 {
        if (!pstVpeMode) {
            return MI_VPE_ERR(E_MI_ERR_NULL_PTR);
        }
        return with_pipeline([&](host::Pipeline &p) { return p.set_port_mode(VpeCh, VpePort, *pstVpeMode); });
    });
}

MI_S32 MI_VPE_EnablePort(MI_VPE_CHANNEL VpeCh, MI_VPE_PORT VpePort) {
    return guarded(kVpe, [&] {
        return with_pipeline([&](host::Pipeline &p) { return p.enable_port(VpeCh, VpePort); });
    });
}

MI_S32 MI_VPE_DisablePort(MI_VPE_CHANNEL VpeCh, MI_VPE_PORT VpePort) {
    return guarded(kVpe, [&] {
        return with_pipeline([&](host::Pipeline &p) { return p.disable_port(VpeCh, VpePort); });
    });
}

}  // extern "C"
