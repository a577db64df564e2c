/*
 * MI RGN entry points. Overlays are not drawn on the PC; the palette is kept
 * so that tests can check what the daemon set up.
 */
#include "host_system.h"
#include "mi_rgn.h"

using host::guarded;

extern "C" {

MI_S32 MI_RGN_Init(MI_RGN_PaletteTable_t *pstPaletteTable) {
    return guarded(E_MI_MODULE_ID_RGN, [&]() -> MI_S32 {
        if (!pstPaletteTable) {
            return MI_RGN_ERR(E_MI_ERR_NULL_PTR);
        }
        host::System &s = host::system_state();
        std::lock_guard<std::mutex> lk(s.mu);
        if (!s.initialised) {
            return MI_RGN_ERR(E_MI_ERR_NOT_INIT);
        }
        if (s.rgn.initialised) {
            return MI_RGN_ERR(E_MI_ERR_EXIST);
        }
        s.rgn.palette = *pstPaletteTable;
        s.rgn.havePalette = true;
        s.rgn.initialised = true;
        return MI_SUCCESS;
    });
}

MI_S32 MI_RGN_DeInit(void) {
    return guarded(E_MI_MODULE_ID_RGN, []() -> MI_S32 {
        host::System &s = host::system_state();
        std::lock_guard<std::mutex> lk(s.mu);
        if (!s.rgn.initialised) {
            return MI_RGN_ERR(E_MI_ERR_NOT_INIT);
        }
        s.rgn.initialised = false;
        s.rgn.havePalette = false;
        s.rgn.palette = MI_RGN_PaletteTable_t();
        return MI_SUCCESS;
    });
}

}  // extern "C"
