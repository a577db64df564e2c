#include "media/st_vpe.h"

#include <cstring>

#include "media/st_report.h"
#include "mi_sys.h"

MI_S32 ST_Vpe_GetDefaultMode(void) {
    return 24;
}

MI_S32 ST_Vpe_CreateChannel(MI_VPE_CHANNEL VpeChannel, MI_VPE_ChannelAttr_t *pstChannelAttr) {
    MI_VPE_ChannelPara_t stChannelParam;
    memset(&stChannelParam, 0, sizeof stChannelParam);
    printf("beal.......mode %d %d  .....\n", ST_Vpe_GetDefaultMode(),
           pstChannelAttr ? static_cast<int>(pstChannelAttr->eRunningMode) : 0);
    MI_VPE_SetChannelParam(VpeChannel, &stChannelParam);  // not checked, as ever
    ST_CHECK(48, MI_VPE_CreateChannel(VpeChannel, pstChannelAttr));
    return MI_SUCCESS;
}

MI_S32 ST_Vpe_StartChannel(MI_VPE_CHANNEL VpeChannel) {
    ST_CHECK(122, MI_VPE_StartChannel(VpeChannel));
    return MI_SUCCESS;
}

MI_S32 ST_Vpe_StopChannel(MI_VPE_CHANNEL VpeChannel) {
    ST_CHECK(129, MI_VPE_StopChannel(VpeChannel));
    return MI_SUCCESS;
}

MI_S32 ST_Vpe_DestroyChannel(MI_VPE_CHANNEL VpeChannel) {
    ST_CHECK(136, MI_VPE_DestroyChannel(VpeChannel));
    return MI_SUCCESS;
}

MI_S32 ST_Vpe_StartPort(MI_VPE_PORT VpePort, ST_VPE_PortInfo_T *pstPortInfo) {
    MI_VPE_PortMode_t stVpeMode;
    MI_SYS_ChnPort_t stChnPort;
    MI_VPE_CHANNEL VpeChannel = pstPortInfo->u32ChnId;

    printf("xxxxxxxxxxx........ST_Vpe_StartPort......%d  %d....\n", VpeChannel, VpePort);
    memset(&stVpeMode, 0, sizeof stVpeMode);
    ST_CHECK(148, MI_VPE_GetPortMode(VpeChannel, VpePort, &stVpeMode));
    stVpeMode.ePixelFormat = pstPortInfo->ePixelFormat;
    stVpeMode.u16Width = pstPortInfo->u16OutputWidth;
    stVpeMode.u16Height = pstPortInfo->u16OutputHeight;
    stVpeMode.eCompressMode = E_MI_SYS_COMPRESS_MODE_NONE;
    ST_CHECK(153, MI_VPE_SetPortMode(VpeChannel, VpePort, &stVpeMode));

    stChnPort.eModId = E_MI_MODULE_ID_VPE;
    stChnPort.u32DevId = 0;
    stChnPort.u32ChnId = static_cast<MI_U32>(VpeChannel);
    stChnPort.u32PortId = static_cast<MI_U32>(VpePort);
    ST_CHECK(159, MI_SYS_SetChnOutputPortDepth(&stChnPort, 0, 5));
    ST_CHECK(161, MI_VPE_EnablePort(VpeChannel, VpePort));
    return MI_SUCCESS;
}

MI_S32 ST_Vpe_StopPort(MI_VPE_CHANNEL VpeChannel, MI_VPE_PORT VpePort) {
    ST_CHECK(168, MI_VPE_DisablePort(VpeChannel, VpePort));
    return MI_SUCCESS;
}
