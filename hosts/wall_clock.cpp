// libvelmora-wall-clock.so: gives one process a wall clock of its own, to see what a server does when the
// clock leaps, without touching the machine's.
//
//     WALL_CLOCK=FILE LD_PRELOAD=libvelmora-wall-clock.so Velmora_server
//
// The file holds eight bytes: by how many seconds that clock runs ahead of the machine's, as a signed
// little-endian number. Whoever writes it sets the clock at once. Clocks that count time passed are left
// alone.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <ctime>

namespace {

int64_t Ahead()
{
    static auto* const seconds = [] {
        const char* const path = getenv("WALL_CLOCK");
        const int file = path == nullptr ? -1 : open(path, O_RDONLY | O_CLOEXEC);
        void* const mapped = mmap(nullptr, sizeof(int64_t), PROT_READ, MAP_SHARED, file, 0);
        if (mapped == MAP_FAILED)
            abort();
        close(file);
        return static_cast<std::atomic<int64_t>*>(mapped);
    }();
    return *seconds;
}

} // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept
{
    const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    if (result == 0 && clock == CLOCK_REALTIME)
        now->tv_sec += Ahead();
    return result;
}

extern "C" time_t time(time_t* to) noexcept
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (to != nullptr)
        *to = now.tv_sec;
    return now.tv_sec;
}
