#include "common/clock.h"

#include <cerrno>
#include <ctime>

#include "common/log.h"

static_assert(sizeof(time_t) == 8, "the clock must not end in January 2038");

void SleepUs(uint32_t microseconds)
{
    timespec rest{.tv_sec = static_cast<time_t>(microseconds / 1000000),
                  .tv_nsec = static_cast<long>(microseconds % 1000000) * 1000};
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &rest, &rest) == EINTR) {
    }
}

void SleepMs(uint32_t milliseconds)
{
    SleepUs(milliseconds * 1000);
}

void SleepUntilUs(int64_t timeUs)
{
    const timespec time{.tv_sec = static_cast<time_t>(timeUs / 1000000),
                        .tv_nsec = static_cast<long>(timeUs % 1000000) * 1000};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr) == EINTR) {
    }
}

uint32_t GetUptime()
{
    // The clock behind sysinfo()'s uptime, read without a system call: this runs once per message
    // and receiver of the media path.
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<uint32_t>(now.tv_sec) + (now.tv_nsec != 0 ? 1U : 0U);
}

int64_t MonotonicUs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

int64_t MonotonicMs()
{
    return MonotonicUs() / 1000;
}

void SetSystemClock(int64_t seconds)
{
    const timespec time{.tv_sec = static_cast<time_t>(seconds), .tv_nsec = 0};
    if (clock_settime(CLOCK_REALTIME, &time) != 0)
        LogWarn("%s %d: the clock cannot be set. errno = %d\n", __func__, __LINE__, errno);
}
