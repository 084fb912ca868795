// Stand-ins for the floors below the server, and for the wait and the clock of its loops.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

// What the server asked of the floors below, in order.
extern std::vector<std::string> g_calls;

// The time in microseconds that the latest select() was allowed to wait.
extern std::atomic<int64_t> g_selectTimeoutUs;

// Sets the uptime that everything sees for a scope.
class FakeUptime {
  public:
    explicit FakeUptime(uint32_t seconds) { Set(seconds); }
    ~FakeUptime();
    FakeUptime(const FakeUptime&) = delete;
    FakeUptime& operator=(const FakeUptime&) = delete;
    void Set(uint32_t seconds);
};
