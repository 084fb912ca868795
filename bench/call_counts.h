// What the call counter writes and velmora-frame-cost reads: how often each thread of the counted program has
// called which functions of the C library. Shared memory of both processes; every number only grows.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

enum class Call : uint32_t {
    Sleep,
    Select, // and poll
    Wait,   // for a condition
    Signal, // a condition
    Lock,
    Send,
    Receive,
    File, // read and write
    Queue,
    SharedMemory,
    Allocate,
    Copy,
};

struct CallKind {
    const char* name;
    bool isSystemCall; // enters the kernel, or may do so
    bool isWait;       // may end in a wake-up
};

inline constexpr CallKind kCallKinds[] = {
    {"sleep", true, true},  {"select", true, true}, {"wait", true, true},    {"signal", true, false},
    {"lock", false, false}, {"send", true, false},  {"recv", true, false},   {"file", true, false},
    {"queue", true, true},  {"shm", true, false},   {"alloc", false, false}, {"copy", false, false},
};
inline constexpr size_t kCallKindCount = sizeof kCallKinds / sizeof *kCallKinds;

struct ThreadCalls {
    std::atomic<int32_t> tid; // 0: not used yet
    std::atomic<uint64_t> calls[kCallKindCount];
    std::atomic<uint64_t> copiedBytes;
};

// More threads than the server ever has; should there be more, the last row takes them together.
inline constexpr size_t kCountedThreads = 64;

struct CallCounts {
    std::atomic<uint32_t> threads;
    ThreadCalls thread[kCountedThreads];
};

// The environment variable with the number of an inherited descriptor of the memory.
inline constexpr char kCallCountsVariable[] = "VELMORA_CALL_COUNTS";
