// Waiting, the clocks that count time passed, and the one that people read. Thread-safe.
#pragma once

#include <cstdint>

// Sleeps at least this long, whatever signals arrive.
void SleepUs(uint32_t microseconds);
void SleepMs(uint32_t milliseconds);

// Sleeps until MonotonicUs() has reached the time, whatever signals arrive.
void SleepUntilUs(int64_t timeUs);

// System uptime in whole seconds, as sysinfo() reports it: a started second counts.
uint32_t GetUptime();

// Microseconds and milliseconds on a clock that nobody can set; for measuring spans.
int64_t MonotonicUs();
int64_t MonotonicMs();

// Sets the clock of the system, in seconds since 1970 (UTC). A refusal is logged.
void SetSystemClock(int64_t seconds);
