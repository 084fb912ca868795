#include "bench/soak_verdict.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>

namespace {

constexpr uint64_t kMostFailuresShown = 50;

} // namespace

void SoakVerdict::Fail(const char* format, ...)
{
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (++failures_ <= kMostFailuresShown)
        fprintf(stderr, "velmora-soak: WRONG in round %" PRIu64 ": %s\n", round.load(), text);
}

void SoakVerdict::Count(const std::string& what)
{
    const std::lock_guard lock(mutex_);
    ++counts_[what];
}

std::map<std::string, uint64_t> SoakVerdict::Counts() const
{
    const std::lock_guard lock(mutex_);
    return counts_;
}

void SoakVerdict::CountAnswer(double ms, bool disturbed)
{
    ++answers;
    std::atomic<double>& slowest = disturbed ? slowestDisturbedMs : slowestCalmMs;
    for (double seen = slowest; ms > seen && !slowest.compare_exchange_weak(seen, ms);) {
    }
}
