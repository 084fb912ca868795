// Counts the calls of an unchanged program into the C library, per thread, without stopping it: a library
// that is loaded before the C library (LD_PRELOAD) and passes every call on. See call_counts.h.
//
// What the C library does inside itself is not seen, so a contended lock is not: those show as wake-ups.
#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/msg.h>
#include <sys/select.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>

#include "bench/call_counts.h"

// The C library's own names for what is replaced here; finding them must not allocate.
extern "C" {
void* __libc_malloc(size_t bytes);
void* __libc_calloc(size_t count, size_t bytes);
void* __libc_realloc(void* block, size_t bytes);
void* __memcpy_chk(void* to, const void* from, size_t bytes, size_t room) noexcept;
ssize_t __recv_chk(int fd, void* to, size_t bytes, size_t room, int flags);
ssize_t __read_chk(int fd, void* to, size_t bytes, size_t room);
int __poll_chk(pollfd* fds, nfds_t count, int timeout, size_t room);
}

namespace {

CallCounts* g_counts;
// Where this thread counts. Initial-exec: looking it up must not allocate.
[[gnu::tls_model("initial-exec")]] thread_local ThreadCalls* t_calls;

ThreadCalls* OwnCalls()
{
    if (t_calls == nullptr && g_counts != nullptr) {
        const uint32_t row = g_counts->threads.fetch_add(1);
        t_calls = &g_counts->thread[row < kCountedThreads ? row : kCountedThreads - 1];
        t_calls->tid = gettid();
    }
    return t_calls;
}

void Count(Call call)
{
    if (ThreadCalls* const own = OwnCalls())
        own->calls[static_cast<size_t>(call)].fetch_add(1, std::memory_order_relaxed);
}

void CountCopy(size_t bytes)
{
    Count(Call::Copy);
    if (t_calls != nullptr)
        t_calls->copiedBytes.fetch_add(bytes, std::memory_order_relaxed);
}

// Started programs are not counted: the variables are for this one alone.
[[gnu::constructor]] void Attach()
{
    const char* const text = getenv(kCallCountsVariable);
    if (text == nullptr)
        return;
    const int fd = static_cast<int>(strtol(text, nullptr, 10));
    void* const memory = mmap(nullptr, sizeof(CallCounts), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    unsetenv(kCallCountsVariable);
    unsetenv("LD_PRELOAD");
    if (memory != MAP_FAILED)
        g_counts = static_cast<CallCounts*>(memory);
}

} // namespace

// Passes a call on to the definition behind this library's.
#define NEXT(name) reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))
#define COUNTED(call, result, name, parameters, arguments)                                                   \
    extern "C" result name parameters                                                                        \
    {                                                                                                        \
        static const auto next = NEXT(name);                                                                 \
        Count(call);                                                                                         \
        return next arguments;                                                                               \
    }

// clang-format off: one call a line
COUNTED(Call::Sleep, int, clock_nanosleep, (clockid_t clock, int flags, const timespec* time, timespec* rest),
        (clock, flags, time, rest))
COUNTED(Call::Sleep, int, nanosleep, (const timespec* time, timespec* rest), (time, rest))
COUNTED(Call::Sleep, int, usleep, (useconds_t time), (time))
COUNTED(Call::Select, int, select, (int highest, fd_set* in, fd_set* out, fd_set* other, timeval* time),
        (highest, in, out, other, time))
COUNTED(Call::Select, int, poll, (pollfd * fds, nfds_t count, int timeout), (fds, count, timeout))
COUNTED(Call::Select, int, __poll_chk, (pollfd * fds, nfds_t count, int timeout, size_t room),
        (fds, count, timeout, room))
COUNTED(Call::Wait, int, pthread_cond_wait, (pthread_cond_t * condition, pthread_mutex_t* mutex),
        (condition, mutex))
COUNTED(Call::Wait, int, pthread_cond_timedwait,
        (pthread_cond_t * condition, pthread_mutex_t* mutex, const timespec* time), (condition, mutex, time))
COUNTED(Call::Wait, int, pthread_cond_clockwait,
        (pthread_cond_t * condition, pthread_mutex_t* mutex, clockid_t clock, const timespec* time),
        (condition, mutex, clock, time))
COUNTED(Call::Signal, int, pthread_cond_signal, (pthread_cond_t * condition) noexcept, (condition))
COUNTED(Call::Signal, int, pthread_cond_broadcast, (pthread_cond_t * condition) noexcept, (condition))
COUNTED(Call::Lock, int, pthread_mutex_lock, (pthread_mutex_t * mutex) noexcept, (mutex))
COUNTED(Call::Send, ssize_t, send, (int fd, const void* from, size_t bytes, int flags),
        (fd, from, bytes, flags))
COUNTED(Call::Send, ssize_t, sendto,
        (int fd, const void* from, size_t bytes, int flags, const sockaddr* peer, socklen_t room),
        (fd, from, bytes, flags, peer, room))
COUNTED(Call::Send, ssize_t, sendmsg, (int fd, const msghdr* message, int flags), (fd, message, flags))
COUNTED(Call::Receive, ssize_t, recv, (int fd, void* to, size_t bytes, int flags), (fd, to, bytes, flags))
COUNTED(Call::Receive, ssize_t, __recv_chk, (int fd, void* to, size_t bytes, size_t room, int flags),
        (fd, to, bytes, room, flags))
COUNTED(Call::Receive, ssize_t, recvfrom,
        (int fd, void* to, size_t bytes, int flags, sockaddr* peer, socklen_t* room),
        (fd, to, bytes, flags, peer, room))
COUNTED(Call::File, ssize_t, read, (int fd, void* to, size_t bytes), (fd, to, bytes))
COUNTED(Call::File, ssize_t, __read_chk, (int fd, void* to, size_t bytes, size_t room), (fd, to, bytes, room))
COUNTED(Call::File, ssize_t, write, (int fd, const void* from, size_t bytes), (fd, from, bytes))
COUNTED(Call::Queue, int, msgsnd, (int queue, const void* message, size_t bytes, int flags),
        (queue, message, bytes, flags))
COUNTED(Call::Queue, ssize_t, msgrcv, (int queue, void* message, size_t bytes, long type, int flags),
        (queue, message, bytes, type, flags))
COUNTED(Call::SharedMemory, int, shmget, (key_t key, size_t bytes, int flags) noexcept, (key, bytes, flags))
COUNTED(Call::SharedMemory, void*, shmat, (int segment, const void* place, int flags) noexcept,
        (segment, place, flags))
COUNTED(Call::SharedMemory, int, shmdt, (const void* place) noexcept, (place))
COUNTED(Call::SharedMemory, int, shmctl, (int segment, int command, shmid_ds* data) noexcept,
        (segment, command, data))
// clang-format on

extern "C" void* malloc(size_t bytes) noexcept
{
    Count(Call::Allocate);
    return __libc_malloc(bytes);
}

extern "C" void* calloc(size_t count, size_t bytes) noexcept
{
    Count(Call::Allocate);
    return __libc_calloc(count, bytes);
}

extern "C" void* realloc(void* block, size_t bytes) noexcept
{
    Count(Call::Allocate);
    return __libc_realloc(block, bytes);
}

// memmove copies for all of them: it is not replaced itself, because the loader needs it before this library
// is ready.
extern "C" void* memcpy(void* __restrict to, const void* __restrict from, size_t bytes) noexcept
{
    CountCopy(bytes);
    return memmove(to, from, bytes);
}

extern "C" void* __memcpy_chk(void* to, const void* from, size_t bytes, size_t room) noexcept
{
    if (bytes > room)
        abort();
    CountCopy(bytes);
    return memmove(to, from, bytes);
}
