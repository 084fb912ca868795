#include "camera/time_operations.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

#include "camera/device_commands.h"
#include "tests/camera/parameter_host.h"

// The clock of the machine is never touched: this one notes what it would be set to.
namespace {

int64_t g_clockSetTo = 0;
bool g_clockRefuses = false;

} // namespace

extern "C" int __wrap_clock_settime(clockid_t clock, const timespec* time);
int __wrap_clock_settime(clockid_t clock, const timespec* time)
{
    EXPECT_EQ(clock, CLOCK_REALTIME);
    g_clockSetTo = time->tv_sec;
    errno = EPERM;
    return g_clockRefuses ? -1 : 0;
}

namespace {

TEST(SetDateTime, ReadsTheTimeInTheProcessZoneAndAddsTheStoredOffset)
{
    constexpr int64_t kNewYear = 1704067200; // 2024-01-01 00:00:00 UTC
    const struct {
        const char* name;
        uint8_t zone;
        uint8_t lock;
        CameraDateTime time;
        int status;
        int64_t clock; // 0: left alone
        const char* processZone = "UTC0";
    } cases[] = {
        {"eight hours east", 40, 0, {2024, 1, 7, 1, 0, 0, 0}, 0, kNewYear + 28800},
        {"UTC", 24, 0, {2024, 2, 0, 29, 23, 59, 58}, 0, kNewYear + 60 * 86400 - 2},
        {"half an hour west", 23, 0, {2024, 1, 0, 1, 0, 0, 0}, 0, kNewYear - 1800},
        {"ends of the zones", 0, 0, {2024, 1, 0, 1, 0, 0, 0}, 0, kNewYear - 43200},
        {"last zone", 48, 0, {2024, 1, 0, 1, 0, 0, 0}, 0, kNewYear + 43200},
        {"beyond the last", 49, 0, {2024, 1, 0, 1, 0, 0, 0}, -1, 0},
        {"process zone", 24, 0, {2024, 1, 0, 1, 3, 0, 0}, 0, kNewYear, "XXX-3"},
        {"month 0 is January", 24, 0, {2024, 0, 0, 1, 0, 0, 0}, 0, kNewYear},
        {"last second of 31 bits", 24, 0, {2038, 1, 0, 19, 3, 14, 7}, 0, 2147483647},
        {"first second beyond", 24, 0, {2038, 1, 0, 19, 3, 14, 8}, 0, 2147483648},
        {"beyond by the zone", 40, 0, {2038, 1, 0, 19, 3, 14, 7}, 0, 2147483647 + 28800LL},
        {"last second of 32 bits", 24, 0, {2106, 2, 0, 7, 6, 28, 15}, 0, 4294967295},
        {"first beyond 32 bits", 24, 0, {2106, 2, 0, 7, 6, 28, 16}, 0, 4294967296},
        {"leap day of 2000", 24, 0, {2000, 2, 0, 29, 0, 0, 0}, 0, 951782400},
        {"no leap day in 2100", 24, 0, {2100, 2, 0, 29, 0, 0, 0}, 0, 4107542400},
        {"leap second", 24, 0, {2016, 12, 0, 31, 23, 59, 60}, 0, 1483228800},
        {"last year of four digits", 24, 0, {9999, 12, 0, 31, 23, 59, 59}, 0, 253402300799},
        {"year beyond 31 bits", 24, 0, {2147485548, 1, 0, 1, 0, 0, 0}, -1, 0},
        {"1970", 24, 0, {1970, 1, 0, 1, 0, 0, 1}, 0, 1},
        {"year 1900", 24, 0, {1900, 1, 0, 1, 0, 0, 0}, -1, 0},
        {"before 1970", 48, 0, {1969, 12, 0, 31, 23, 0, 0}, -1, 0},
        {"huge words", 24, 0, {~0U, ~0U, 0, ~0U, ~0U, ~0U, ~0U}, -1, 0},
        {"locked", 24, 1, {2024, 1, 0, 1, 0, 0, 0}, 0, 0},
    };
    for (const auto& row : cases)
        for (const bool refuses : {false, true}) {
            SCOPED_TRACE(row.name);
            setenv("TZ", row.processZone, 1);
            Host().Set<uint8_t>({{1158, row.zone}, {1170, row.lock}});
            Host().Take();
            g_clockSetTo = 0;
            g_clockRefuses = refuses;
            const std::string output =
                ErrorOutputOf([&] { EXPECT_EQ(CameraSetDateTime(row.time), row.status); });
            EXPECT_EQ(g_clockSetTo, row.clock);
            EXPECT_EQ(output.find("[Warn]") != std::string::npos, refuses && row.clock != 0) << output;
            EXPECT_EQ(Host().Take(), row.clock != 0 ? std::vector{SentByte(225, 1)} : std::vector<Request>{});
        }
    unsetenv("TZ");
    EXPECT_EQ(CameraSetTimeZone(0, 24), 0) << "the lock still holds";
    EXPECT_EQ(Host().Take(), std::vector<Request>{});
    Host().Set<uint8_t>({{1170, 0}});
}

} // namespace
