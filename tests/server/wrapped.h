// The wait and the clock of the server's loops, as the tests see and set them.
#pragma once

#include <atomic>
#include <cstdint>

extern std::atomic<int64_t> g_selectTimeoutUs; // that the latest select() was allowed to wait
extern std::atomic<int64_t> g_uptime;          // that everything sees; below 0: the real one
extern std::atomic<int64_t> g_monotonicMs;     // the same for MonotonicMs()

// Sets the clock for a scope.
struct FakeUptime {
    explicit FakeUptime(uint32_t seconds) { g_uptime = seconds; }
    ~FakeUptime() { g_uptime = -1; }
};
struct FakeMonotonic {
    explicit FakeMonotonic(int64_t ms) { g_monotonicMs = ms; }
    ~FakeMonotonic() { g_monotonicMs = -1; }
};
