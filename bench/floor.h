// What the two halves of the floor program share: its connections, and the start of its media path.
//
// The floor program does the copies, messages, sends and waits of live view, and nothing else: what it
// costs, every server of this protocol costs. It keeps no rule that a well-behaved peer does not need.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

inline constexpr size_t kFloorSlots = 16;

// One connection. The listener fills a free slot (fd 0), the receive thread changes it, the senders
// read it. A closed connection is only shut down: its number stays taken until the process ends, so
// that no sender can meet a successor.
struct FloorSlot {
    std::atomic<int> fd{0};
    std::atomic<int> type{-1}; // -1 new, 0 command, 1 main stream
    std::atomic<uint32_t> session{0};
    std::atomic<uint32_t> sequence{0};
    std::atomic<bool> sendVideo{false};
};
extern FloorSlot g_floorSlots[kFloorSlots];

// Starts a thread that never ends; ends the process when it cannot.
void StartFloorThread(const char* name, void* (*body)(void*), void* argument);

// Starts the senders and UnlockSignal, then the ring readers of both streams. `parameters` is the
// attached parameter block.
void StartFloorMedia(int32_t clientType, const uint8_t* parameters);
