// The five log calls through which every diagnostic line of the program goes.
//
// Thread-safe: each call formats into storage of its own and writes its line to standard error with
// one write, so lines of concurrent threads stay whole. No line end is added.
#pragma once

#include <cstddef>

inline constexpr size_t kLogTextBytes = 0x4FFF; // with the terminating zero: longer texts are cut

// Switches logging on for the rest of the process; before the first call nothing is written. The
// module name and the level are accepted and filter nothing.
void LogInit(const char* moduleName, int level);

// Each returns 0.
[[gnu::format(printf, 1, 2)]] int LogTrace(const char* format, ...);
[[gnu::format(printf, 1, 2)]] int LogError(const char* format, ...);
[[gnu::format(printf, 1, 2)]] int LogWarn(const char* format, ...);
[[gnu::format(printf, 1, 2)]] int LogInfo(const char* format, ...);
[[gnu::format(printf, 1, 2)]] int LogDebug(const char* format, ...);
