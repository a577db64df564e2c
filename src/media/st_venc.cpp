#include "media/st_venc.h"

#include "media/st_report.h"

MI_S32 ST_Venc_CreateChannel(MI_VENC_CHN VencChn, MI_VENC_ChnAttr_t *pstAttr) {
    if (pstAttr == nullptr) {
        printf("\033[0;31m[ERR]:%s[%d]: \033[0m", __func__, 28);
        printf("invalid param\n");
        return -1;
    }
    ST_CHECK(32, MI_VENC_CreateChn(VencChn, pstAttr));
    return MI_SUCCESS;
}

MI_S32 ST_Venc_DestoryChannel(MI_VENC_CHN VencChn) {
    ST_CHECK(50, MI_VENC_StopRecvPic(VencChn));
    ST_CHECK(51, MI_VENC_DestroyChn(VencChn));
    return MI_SUCCESS;
}

MI_S32 ST_Venc_StartChannel(MI_VENC_CHN VencChn) {
    ST_CHECK(58, MI_VENC_StartRecvPic(VencChn));
    return MI_SUCCESS;
}

MI_S32 ST_Venc_StopChannel(MI_VENC_CHN VencChn) {
    ST_CHECK(65, MI_VENC_StopRecvPic(VencChn));
    return MI_SUCCESS;
}
