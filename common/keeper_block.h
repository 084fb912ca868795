// Layout of the keeper block: the liveness slots that the firmware's keeper process watches.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

inline constexpr key_t kKeeperKey = 0x61788C7D;
inline constexpr size_t kKeeperBlockBytes = 200; // the slots, then 64 bytes that nobody uses
inline constexpr int kKeeperBlockMode = 0777;
inline constexpr uint32_t kKeeperSlots = 17;
inline constexpr uint32_t kKeeperSlotVelmora = 16; // the slot of Velmora_server

struct KeeperSlot {
    uint32_t ulTime;   // seconds since the epoch of the slot's last write
    uint32_t ulStatus; // not written by Velmora_server
};
static_assert(sizeof(KeeperSlot) == 8);
static_assert(offsetof(KeeperSlot, ulStatus) == 4);
static_assert(kKeeperSlots * sizeof(KeeperSlot) == 136);
