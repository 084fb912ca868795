// Preloaded into a server under test: its wall clock runs ahead of the machine's by so many seconds as the
// file holds that the environment names in WALL_CLOCK, eight bytes of which the test is the only writer.
// Clocks that count time passed are left alone.

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
        const int file = open(getenv("WALL_CLOCK"), O_RDONLY | O_CLOEXEC);
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
