#include "media/st_vif.h"

#include "media/st_report.h"
#include "mi_sys.h"

MI_S32 ST_Vif_EnableDev(MI_VIF_DEV VifDev, MI_VIF_DevAttr_t *pstDevAttr) {
    ST_CHECK(47, MI_VIF_SetDevAttr(VifDev, pstDevAttr));
    ST_CHECK(48, MI_VIF_EnableDev(VifDev));
    return MI_SUCCESS;
}

MI_S32 ST_Vif_DisableDev(MI_VIF_DEV VifDev) {
    ST_CHECK(55, MI_VIF_DisableDev(VifDev));
    return MI_SUCCESS;
}

MI_S32 ST_Vif_CreatePort(MI_VIF_CHN VifChn, MI_VIF_PORT VifPort, MI_VIF_ChnPortAttr_t *pstAttr) {
    ST_CHECK(131, MI_VIF_SetChnPortAttr(VifChn, VifPort, pstAttr));
    return MI_SUCCESS;
}

MI_S32 ST_Vif_StartPort(MI_VIF_DEV VifDev, MI_VIF_CHN VifChn, MI_VIF_PORT VifPort) {
    MI_SYS_ChnPort_t stChnPort;
    stChnPort.eModId = E_MI_MODULE_ID_VIF;
    stChnPort.u32DevId = static_cast<MI_U32>(VifDev);
    stChnPort.u32ChnId = static_cast<MI_U32>(VifChn);
    stChnPort.u32PortId = static_cast<MI_U32>(VifPort);
    MI_SYS_SetChnOutputPortDepth(&stChnPort, 0, 6);  // not checked, as ever
    ST_CHECK(148, MI_VIF_EnableChnPort(VifChn, VifPort));
    return MI_SUCCESS;
}

MI_S32 ST_Vif_StopPort(MI_VIF_CHN VifChn, MI_VIF_PORT VifPort) {
    ST_CHECK(153, MI_VIF_DisableChnPort(VifChn, VifPort));
    return MI_SUCCESS;
}
