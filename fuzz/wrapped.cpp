#include "fuzz/wrapped.h"

#include <sys/mman.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>

Segment g_segments[kMostSegments];
int64_t g_nowUs = 1000000;
bool g_isServing = false;

namespace {

constexpr size_t kGuardBytes = size_t{8} << 30;

Segment* SegmentOfId(int id)
{
    Segment* const found = std::find_if(std::begin(g_segments), std::end(g_segments),
                                        [id](const Segment& segment) { return segment.id == id; });
    errno = EINVAL;
    return id > 0 && found != std::end(g_segments) ? found : nullptr;
}

} // namespace

void Violation(const char* what)
{
    dprintf(STDERR_FILENO, "VIOLATION: %s\n", what);
    abort();
}

void MakeRoom(Segment* segment, size_t bytes, bool isWritable)
{
    const int file = memfd_create("segment", MFD_CLOEXEC);
    void* const guard =
        mmap(nullptr, bytes + 2 * kGuardBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (file < 0 || ftruncate(file, static_cast<off_t>(bytes)) != 0 || guard == MAP_FAILED)
        Violation("the machine has no memory");
    void* const hosts = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    void* const servers = mmap(static_cast<uint8_t*>(guard) + kGuardBytes, bytes,
                               PROT_READ | (isWritable ? PROT_WRITE : 0), MAP_SHARED | MAP_FIXED, file, 0);
    if (hosts == MAP_FAILED || servers == MAP_FAILED)
        Violation("the machine has no memory");
    close(file);
    segment->end = static_cast<uint8_t*>(servers) + bytes;
    segment->hostsEnd = static_cast<uint8_t*>(hosts) + bytes;
}

// What is freed is soon used again: inputs are many, and the machine's memory is not.
const char* __asan_default_options()
{
    return "quarantine_size_mb=4";
}

WRAPPED(int, shmget, key_t key, size_t, int)
{
    errno = ENOENT;
    return IdOfKey(key);
}

WRAPPED(int, shmctl, int id, int, shmid_ds* status)
{
    const Segment* const segment = SegmentOfId(id);
    if (segment != nullptr)
        status->shm_segsz = segment->bytes;
    return segment != nullptr ? 0 : -1;
}

WRAPPED(void*, shmat, int id, const void*, int)
{
    Segment* const segment = SegmentOfId(id);
    if (segment == nullptr)
        return reinterpret_cast<void*>(-1);
    segment->isAttached = true;
    return segment->base();
}

WRAPPED(int, shmdt, const void* address)
{
    for (Segment& segment : g_segments)
        segment.isAttached = segment.isAttached && segment.base() != address;
    return 0;
}

WRAPPED(int, clock_gettime, clockid_t clock, timespec* now)
{
    if (!g_isServing || clock == CLOCK_REALTIME) // libFuzzer's
        return __real_clock_gettime(clock, now);
    *now = {.tv_sec = g_nowUs / 1000000, .tv_nsec = g_nowUs % 1000000 * 1000};
    return 0;
}

WRAPPED(int, clock_nanosleep, clockid_t, int flags, const timespec* time, timespec*)
{
    const int64_t us = int64_t{time->tv_sec} * 1000000 + time->tv_nsec / 1000;
    const int64_t beforeUs = g_nowUs;
    g_nowUs = (flags & TIMER_ABSTIME) != 0 ? std::max(us, g_nowUs) : g_nowUs + us;
    AfterSleep(g_nowUs - beforeUs);
    return 0;
}

// The one thread does all; there is no other.
WRAPPED(int, _Z19StartDetachedThreadPKcPFPvS1_ES1_, const char*, ThreadBody*, void*)
{
    return EAGAIN;
}
