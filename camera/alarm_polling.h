// Alarm callbacks: ten slots, and the threads that poll the alarm block once a second for them.
//
// Slots are set by any thread and read by the polling threads, which call the callbacks. A polling
// thread runs for ever and belongs to one slot; every registration starts one more for slot 4.
#pragma once

#include <cstdint>

#include "camera/alarm_block.h"
#include "camera/camera_access.h"
#include "camera/camera_records.h"

inline constexpr uint32_t kAlarmSlots = 10;
inline constexpr uint32_t kAlarmCallbackKind = 2; // first argument of every callback

void ClearAlarmCallbacks();
CameraOperation Common_SetAlarmCallback; // 33: input AlarmRegistration; -1 for a type above 9

// What one polling thread keeps from one second to the next.
struct AlarmPoll {
    uint32_t ulSlot;
    bool wasNonZero;    // any watched state was, the second before
    uint32_t ulCounter; // seconds with an alarm, for slot 1, which reports the parity
};

// One second of a polling thread: calls the slot's callback while the alarm lasts and once when it ends.
void PollAlarmSlot(const AlarmRecord& record, AlarmPoll* poll);
