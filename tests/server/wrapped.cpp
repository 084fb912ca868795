#include "tests/server/wrapped.h"

#include <sys/select.h>

std::atomic<int64_t> g_selectTimeoutUs{0};
std::atomic<int64_t> g_uptime{-1};
std::atomic<int64_t> g_monotonicMs{-1};

// What the linker puts in place of the wrapped functions.
#pragma GCC diagnostic ignored "-Wmissing-declarations"
extern "C" {
int __real_select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout);
uint32_t __real__Z9GetUptimev();
int64_t __real__Z11MonotonicMsv();

int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout)
{
    g_selectTimeoutUs = static_cast<int64_t>(timeout->tv_sec) * 1000000 + timeout->tv_usec;
    return __real_select(count, readable, writable, exceptional, timeout);
}

uint32_t __wrap__Z9GetUptimev()
{
    const int64_t uptime = g_uptime;
    return uptime >= 0 ? static_cast<uint32_t>(uptime) : __real__Z9GetUptimev();
}

int64_t __wrap__Z11MonotonicMsv()
{
    const int64_t now = g_monotonicMs;
    return now >= 0 ? now : __real__Z11MonotonicMsv();
}
}
