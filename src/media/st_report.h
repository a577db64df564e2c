/*
 * The reporting convention of the platform wrappers: after each MI call a
 * failure line with the code in hexadecimal, or a pass line. The line numbers
 * are part of the messages that field engineers grep for, so callers pass the
 * fixed numbers rather than __LINE__.
 */
#ifndef FACEDET_ST_REPORT_H
#define FACEDET_ST_REPORT_H

#include <cstdio>

#include "mi_common.h"

// Prints the failure line for a non-zero code, else the square-bracket pass line.
inline MI_S32 st_report(const char *func, int line, MI_S32 ret) {
    if (ret != MI_SUCCESS) {
        printf("[%s %d]exec function failed, error:%x\n", func, line, ret);
    } else {
        printf("[%s %d]exec function pass\n", func, line);
    }
    return ret;
}

// The same with the round-bracket pass line of the system set-up wrappers and
// of the stream start and stop.
inline MI_S32 st_report_round(const char *func, int line, MI_S32 ret) {
    if (ret != MI_SUCCESS) {
        printf("[%s %d]exec function failed, error:%x\n", func, line, ret);
    } else {
        printf("(%s %d)exec function pass\n", func, line);
    }
    return ret;
}

#define ST_CHECK(line, call)                                  \
    do {                                                      \
        MI_S32 st_ret_ = st_report(__func__, (line), (call)); \
        if (st_ret_ != MI_SUCCESS)                            \
            return st_ret_;                                   \
    } while (0)

#define ST_CHECK_ROUND(line, call)                                  \
    do {                                                            \
        MI_S32 st_ret_ = st_report_round(__func__, (line), (call)); \
        if (st_ret_ != MI_SUCCESS)                                  \
            return st_ret_;                                         \
    } while (0)

#endif
