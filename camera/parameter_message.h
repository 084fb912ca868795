// Layout of the exchange with the parameter host: one queue for the requests and replies of all
// processes, and a data segment with a slot for each of them.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

inline constexpr key_t kParameterKey = 14073; // of the queue and of the data segment
inline constexpr int kParameterQueueMode = 0666;
inline constexpr int kParameterDataMode = 0660;
inline constexpr size_t kParameterDataBytes = 0x24000;
inline constexpr size_t kParameterSlotBytes = 12288; // and the most bytes of one value
inline constexpr long kParameterRequestType = 1;
inline constexpr int kFirstProcessWithSlot = 2;
inline constexpr int kLastProcessWithSlot = 13;

// Queue message: the native type, then five 32-bit words.
struct ParameterMessage {
    long lType;              // request 1; reply the requester's process id
    int32_t iCode;           // message code of the field
    int32_t iSource;         // requester's process id
    int32_t iReserved;       // 0
    int32_t iLengthOrResult; // request: bytes of the value; reply: the result
    int32_t iDataOffset;     // request: offset of the requester's slot in the data segment
};
inline constexpr size_t kParameterTextBytes = 20;
static_assert(offsetof(ParameterMessage, iDataOffset) + 4 - offsetof(ParameterMessage, iCode) ==
              kParameterTextBytes);

// Offset of a process's slot in the data segment; for process ids 2 to 13.
constexpr size_t ParameterSlotOffset(int processId)
{
    return static_cast<size_t>(processId - kFirstProcessWithSlot) * kParameterSlotBytes;
}
