/*
 * Basic types and error codes of the media interfaces (MI).
 *
 * These declarations are the daemon's view of the camera SoC's media
 * platform. On a PC they are served by the host implementation under
 * platform/host; the camera build compiles against the vendor's own headers
 * of the same names instead, so nothing here may be needed by the daemon
 * that the platform does not provide.
 */
#ifndef FACEDET_MI_COMMON_H
#define FACEDET_MI_COMMON_H

#include <stdint.h>

typedef uint8_t MI_U8;
typedef uint16_t MI_U16;
typedef uint32_t MI_U32;
typedef uint64_t MI_U64;
typedef int8_t MI_S8;
typedef int16_t MI_S16;
typedef int32_t MI_S32;
typedef int64_t MI_S64;
typedef uint64_t MI_PHY;
typedef unsigned char MI_BOOL;

#define MI_SUCCESS 0
#define MI_FALSE 0
#define MI_TRUE 1

/* Error identifiers inside an MI error code. */
typedef enum {
    E_MI_ERR_INVALID_DEVID = 1,
    E_MI_ERR_INVALID_CHNID = 2,
    E_MI_ERR_ILLEGAL_PARAM = 3,
    E_MI_ERR_EXIST = 4,
    E_MI_ERR_UNEXIST = 5,
    E_MI_ERR_NULL_PTR = 6,
    E_MI_ERR_NOT_CONFIG = 7,
    E_MI_ERR_NOT_SUPPORT = 8,
    E_MI_ERR_NOT_PERM = 9,
    E_MI_ERR_NOMEM = 12,
    E_MI_ERR_NOBUF = 13,
    E_MI_ERR_BUF_EMPTY = 14,
    E_MI_ERR_BUF_FULL = 15,
    E_MI_ERR_SYS_NOTREADY = 16,
    E_MI_ERR_BUSY = 18,
    E_MI_ERR_NOT_INIT = 21,
    E_MI_ERR_NOT_ENABLE = 22,
    E_MI_ERR_FAILED = 23
} MI_ErrCode_e;

/* Module identifiers; the numbers of VIF and VPE appear in the daemon's
 * channel-port records and logs. */
typedef enum {
    E_MI_MODULE_ID_IVE = 0,
    E_MI_MODULE_ID_VDF = 1,
    E_MI_MODULE_ID_VENC = 2,
    E_MI_MODULE_ID_RGN = 3,
    E_MI_MODULE_ID_AI = 4,
    E_MI_MODULE_ID_AO = 5,
    E_MI_MODULE_ID_VIF = 6,
    E_MI_MODULE_ID_VPE = 7,
    E_MI_MODULE_ID_VDEC = 8,
    E_MI_MODULE_ID_SYS = 9
} MI_ModuleId_e;

#define MI_ERR_LEVEL_ERROR 4

/* A non-zero code: high bit set, module, level and error identifier. */
#define MI_DEF_ERR(module, level, errid) \
    ((MI_S32)(0xA0000000u | ((MI_U32)(module) << 16) | ((MI_U32)(level) << 12) | (MI_U32)(errid)))

#endif
