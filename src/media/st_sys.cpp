#include "media/st_sys.h"

#include "media/st_report.h"

MI_S32 ST_Sys_Init(void) {
    MI_SYS_Version_t stVersion;
    MI_U64 u64Pts = 0;

    ST_CHECK_ROUND(23, MI_SYS_Init());
    ST_CHECK_ROUND(26, MI_SYS_GetVersion(&stVersion));
    printf("[INFO]:%s[%d]: \n", __func__, 27);
    printf("u8Version:%s\n", reinterpret_cast<const char *>(stVersion.u8Version));
    ST_CHECK_ROUND(29, MI_SYS_GetCurPts(&u64Pts));
    printf("[INFO]:%s[%d]: \n", __func__, 30);
    printf("u64Pts:0x%llx\n", static_cast<unsigned long long>(u64Pts));
    u64Pts = 0xF1237890F1237890ULL;
    ST_CHECK_ROUND(33, MI_SYS_InitPtsBase(u64Pts));
    u64Pts = 0xE1237890E1237890ULL;
    ST_CHECK_ROUND(36, MI_SYS_SyncPts(u64Pts));
    return MI_SUCCESS;
}

MI_S32 ST_Sys_Exit(void) {
    ST_CHECK_ROUND(43, MI_SYS_Exit());
    return MI_SUCCESS;
}

MI_S32 ST_Sys_Bind(ST_Sys_BindInfo_T *pstBindInfo) {
    ST_CHECK(56, MI_SYS_BindChnPort2(&pstBindInfo->stSrcChnPort, &pstBindInfo->stDstChnPort,
                                     pstBindInfo->u32SrcFrmrate, pstBindInfo->u32DstFrmrate,
                                     pstBindInfo->eBindType, pstBindInfo->u32BindParam));
    printf("\n");
    printf("src(%d-%d-%d-%d)  dst(%d-%d-%d-%d)  %d...\n", pstBindInfo->stSrcChnPort.eModId,
           pstBindInfo->stSrcChnPort.u32DevId, pstBindInfo->stSrcChnPort.u32ChnId,
           pstBindInfo->stSrcChnPort.u32PortId, pstBindInfo->stDstChnPort.eModId,
           pstBindInfo->stDstChnPort.u32DevId, pstBindInfo->stDstChnPort.u32ChnId,
           pstBindInfo->stDstChnPort.u32PortId, pstBindInfo->eBindType);
    printf("\n");
    return MI_SUCCESS;
}

MI_S32 ST_Sys_UnBind(ST_Sys_BindInfo_T *pstBindInfo) {
    ST_CHECK(68, MI_SYS_UnBindChnPort(&pstBindInfo->stSrcChnPort, &pstBindInfo->stDstChnPort));
    return MI_SUCCESS;
}

MI_S32 ST_Sys_GetFrameIntervalMs(MI_U32 u32FrameRate) {
    if (u32FrameRate == 0) {
        return -1;
    }
    return static_cast<MI_S32>(1000 / u32FrameRate);
}
