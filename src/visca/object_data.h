/*
 * The object-data record: what the move decision hands to camera control.
 * The frame loop fills its working copy, tempObjectData, and stores it whole
 * into g_objectData before a move; the move operations read g_objectData.
 * One definition for both, so the store is a plain assignment of one type.
 */
#ifndef FACEDET_VISCA_OBJECT_DATA_H
#define FACEDET_VISCA_OBJECT_DATA_H

#include <cstdint>
#include <type_traits>

constexpr int kObjectDataFields = 12;
// Fields of a move, in the 1920x1080 output space.
enum : int {
    kObjectPanPoint = 1,   // framing centre x - 960, positive to the right
    kObjectTiltPoint = 2,  // 540 - framing centre y, positive upward
    kObjectZoomPoint = 3,  // framing width, unclamped
    kObjectField5 = 5,     // cleared by the full-view reset
};

struct ObjectData_t {
    int32_t field[kObjectDataFields];
    int32_t &operator[](int i) { return field[i]; }
    const int32_t &operator[](int i) const { return field[i]; }
};
// Twelve 32-bit fields and nothing else, copied whole.
static_assert(sizeof(ObjectData_t) == kObjectDataFields * sizeof(int32_t) &&
                  std::is_trivially_copyable_v<ObjectData_t>,
              "the object-data record is twelve int32 fields");

#endif
