// The alarm block: the states of ten alarm sources, in shared memory that the firmware's alarm source
// writes; its layout, and the library functions through which processes use it.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

inline constexpr key_t kAlarmKey = 0x61788C7C;
inline constexpr size_t kAlarmBlockBytes = 144; // the record, then bytes that nobody uses
inline constexpr int kAlarmBlockMode = 0777;
inline constexpr uint32_t kAlarmSources = 10;

struct AlarmEntry {
    uint32_t ulStatus; // 0 no alarm, 1 alarm
    uint32_t ulTime;   // seconds since the epoch of the entry's last write
};
static_assert(sizeof(AlarmEntry) == 8);
static_assert(offsetof(AlarmEntry, ulTime) == 4);

struct AlarmRecord {
    AlarmEntry source[kAlarmSources];
};
static_assert(sizeof(AlarmRecord) == 80);

// Attaches the block, or creates it. Returns 0, or -1 when it cannot be had; the block then stays
// unusable. A block that is removed later is attached or created again at its next use. A second call
// logs and returns 0. Thread-safe.
int libAlarmProcessInit();
// Stores the state (0 or 1) of one source (0 to 9) with the present time and writes the local copy of
// all sources to the block. Returns 0; -1 for a wrong argument or an unusable block (logged).
int AlarmDataWrite(uint32_t source, uint32_t status);
// Copies the block's record. Returns 0; -1 without a record or a usable block.
int AlarmDataRead(AlarmRecord* record);
