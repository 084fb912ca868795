#include "common/clock.h"

#include <gtest/gtest.h>

#include <ctime>

namespace {

timespec g_now{};

} // namespace

extern "C" int __wrap_clock_gettime(clockid_t, timespec* now);
int __wrap_clock_gettime(clockid_t, timespec* now)
{
    *now = g_now;
    return 0;
}

namespace {

TEST(Clock, CountsOnBeyondEveryBorder)
{
    const struct {
        timespec now;
        uint32_t uptime; // a started second counts
        int64_t monotonicMs;
    } rows[] = {{{0, 0}, 0, 0},
                {{0, 1}, 1, 0},
                {{2147483, 647999999}, 2147484, 2147483647},
                {{2147483, 648000000}, 2147484, 2147483648},
                {{4294967, 295999999}, 4294968, 4294967295},
                {{4294967, 296000000}, 4294968, 4294967296},
                {{2147483647, 999999999}, 2147483648, 2147483647999},
                {{4294967295, 0}, 4294967295, 4294967295000}};
    for (const auto& row : rows) {
        g_now = row.now;
        EXPECT_EQ(GetUptime(), row.uptime);
        EXPECT_EQ(MonotonicMs(), row.monotonicMs);
    }
}

} // namespace
