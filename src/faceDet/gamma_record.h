/*
 * The gamma exchange record: 1180 bytes, copied whole into and out of the data
 * area of the shared-memory segment. Its layout is the contract with the
 * image-tuning process, which reads the curve and the verdict and sets the
 * request fields; every field is a little-endian int32 at a fixed offset.
 *
 * Header only and free of the daemon's other code, so that the peer tool can
 * use the same layout.
 */
#ifndef FACEDET_GAMMA_RECORD_H
#define FACEDET_GAMMA_RECORD_H

#include <cstddef>
#include <cstdint>

constexpr int kGammaLevels = 256;
constexpr int kGammaReservedWords = 28;

struct GammaRecord {
    int32_t reserved[kGammaReservedWords];  // the peer's; carried through unchanged
    int32_t curve[kGammaLevels];            // out: input level i to output level curve[i]
    int32_t isuse;                          // in: 1 while the peer has the last curve applied
    int32_t valid;                          // out: 1 when the curve may be used
    int32_t mean;                           // out: statistics of the scene's luma
    int32_t stdDev;
    int32_t p50;
    int32_t p1;
    int32_t p99;
    int32_t p10;
    int32_t p90;
    int32_t mode;      // in: 1 asks for a curve on the next analysed frame
    int32_t strength;  // in: blend weight, strength x 0.35 / 100
};

// The record is copied byte for byte between two processes of the same CPU;
// the camera and the PC are both little-endian, and a build for anything else
// would need a byte-swapping copy, so it is refused here.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the gamma record is little-endian");
static_assert(offsetof(GammaRecord, reserved) == 0, "reserved at 0");
static_assert(offsetof(GammaRecord, curve) == 112, "curve at 112");
static_assert(offsetof(GammaRecord, isuse) == 1136, "isuse at 1136");
static_assert(offsetof(GammaRecord, valid) == 1140, "valid at 1140");
static_assert(offsetof(GammaRecord, mean) == 1144, "mean at 1144");
static_assert(offsetof(GammaRecord, stdDev) == 1148, "stdDev at 1148");
static_assert(offsetof(GammaRecord, p50) == 1152, "p50 at 1152");
static_assert(offsetof(GammaRecord, p1) == 1156, "p1 at 1156");
static_assert(offsetof(GammaRecord, p99) == 1160, "p99 at 1160");
static_assert(offsetof(GammaRecord, p10) == 1164, "p10 at 1164");
static_assert(offsetof(GammaRecord, p90) == 1168, "p90 at 1168");
static_assert(offsetof(GammaRecord, mode) == 1172, "mode at 1172");
static_assert(offsetof(GammaRecord, strength) == 1176, "strength at 1176");
static_assert(sizeof(GammaRecord) == 1180, "the gamma record is 1180 bytes");

#endif
