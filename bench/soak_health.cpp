#include "bench/soak_health.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "bench/process_under_test.h"

namespace {

size_t CountEntries(const std::string& directory)
{
    const std::filesystem::directory_iterator entries(directory);
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

size_t CountIpcObjects()
{
    size_t objects = 0;
    for (const char* kind : {"shm", "msg", "sem"}) {
        std::ifstream list(std::string("/proc/sysvipc/") + kind);
        size_t lines = 0;
        for (std::string line; std::getline(list, line);)
            ++lines;
        objects += lines > 0 ? lines - 1 : 0; // the first one is the table's head
    }
    return objects;
}

} // namespace

Holdings ReadHoldings(pid_t pid)
{
    const std::string process = "/proc/" + std::to_string(pid);
    return {.descriptors = CountEntries(process + "/fd"),
            .threads = CountEntries(process + "/task"),
            .ipcObjects = CountIpcObjects()};
}

uint64_t ReadAnonymousBytes(pid_t pid)
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/smaps_rollup");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    return FieldOf(text, "Anonymous") * 1024;
}

MemoryTrend FitMemory(const std::vector<MemoryPoint>& points, double fromSeconds)
{
    MemoryTrend trend;
    double sumX = 0, sumY = 0, sumXx = 0, sumXy = 0, last = 0;
    double first = 0;
    for (const MemoryPoint& point : points) {
        if (point.seconds < fromSeconds)
            continue;
        if (trend.points++ == 0)
            first = point.seconds;
        last = point.seconds;
        const double x = point.seconds - first;
        sumX += x;
        sumY += point.bytes;
        sumXx += x * x;
        sumXy += x * point.bytes;
    }
    const auto count = static_cast<double>(trend.points);
    const double divisor = count * sumXx - sumX * sumX;
    if (trend.points < 2 || divisor <= 0)
        return trend;
    const double slope = (count * sumXy - sumX * sumY) / divisor;
    trend.spanSeconds = last - first;
    trend.slopeBytesPerHour = slope * 3600;
    trend.growthBytes = slope * trend.spanSeconds;
    return trend;
}
