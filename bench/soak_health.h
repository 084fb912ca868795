// What the server holds of the machine, and how its memory grows.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <vector>

struct Holdings {
    size_t descriptors = 0;
    size_t threads = 0;
    size_t ipcObjects = 0; // of the namespace: segments, queues, semaphores
    bool operator==(const Holdings&) const = default;
};
Holdings ReadHoldings(pid_t pid);

// Memory that belongs to the process alone: heap, stacks and what it wrote of its data.
uint64_t ReadAnonymousBytes(pid_t pid);

struct MemoryPoint {
    double seconds; // since the run's begin
    double bytes;
};

struct MemoryTrend {
    size_t points = 0;
    double spanSeconds = 0;
    double slopeBytesPerHour = 0; // of the least-squares line
    double growthBytes = 0;       // of that line over the span
};
// Over the points from `fromSeconds` on.
MemoryTrend FitMemory(const std::vector<MemoryPoint>& points, double fromSeconds);
