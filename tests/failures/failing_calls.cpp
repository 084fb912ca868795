// Linked with the whole server into velmora_failing_server: every fallible library function that it calls
// goes through here, and the n-th call of one fails when the test says so. SIGTERM stops the server as a
// program that embeds it would, and looks for leaks; SIGUSR1 runs what no request reaches.

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

#include <cjson/cJSON.h>

#include "camera/system_operations.h"
#include "camera/upgrade_operation.h"
#include "server/server_lifecycle.h"
#include "tests/failures/control.h"

extern "C" {
extern const char __ehdr_start; // where the program is loaded
__attribute__((weak)) int __lsan_do_recoverable_leak_check();
__attribute__((weak)) void __gcov_dump(); // where coverage is measured
}

namespace {

FailureControl* g_control = nullptr; // null: nothing fails
constexpr time_t kRestSeconds = 100; // of the entry thread, when all is started
constexpr char kPackage[] = "/dev/upGradeFile.FLS";
constexpr off_t kPackageBytes = 24;

// Whether this call is the one that is to fail.
bool IsDue(int call, const void* caller)
{
    if (g_control == nullptr)
        return false;
    g_control->count[call]++;
    if (g_control->call != call || g_control->left.fetch_sub(1) != 1)
        return false;
    g_control->caller = static_cast<uintptr_t>(static_cast<const char*>(caller) - &__ehdr_start);
    errno = g_control->error;
    g_control->hasFailed = true;
    return true;
}

void NoteRest(long request)
{
    if (g_control != nullptr && syscall(SYS_gettid) == getpid() &&
        reinterpret_cast<const timespec*>(request)->tv_sec >= kRestSeconds)
        g_control->isUp = true;
}

void RunOperations()
{
    const uint8_t hard = 0;
    (void)Common_Upgrade(&hard, nullptr); // with the package that the test has put there
    (void)!truncate(kPackage, 0);
    (void)!truncate(kPackage, kPackageBytes);
    (void)Common_Upgrade(&hard, nullptr); // with one that is not for this camera
    (void)Common_FactoryDefault(&hard, nullptr);
    g_control->operationsDone++;
}

void* ObeySignals(void* signals)
{
    for (int number = 0;;) {
        sigwait(static_cast<const sigset_t*>(signals), &number);
        if (number == SIGUSR1) {
            RunOperations();
            continue;
        }
        VelmoraServerStop();
        const bool leaks =
            __lsan_do_recoverable_leak_check != nullptr && __lsan_do_recoverable_leak_check() != 0;
        if (__gcov_dump != nullptr)
            __gcov_dump();
        _exit(leaks ? kLeaked : 0);
    }
}

} // namespace

// A function's arguments are passed on as they came: none has more than six, and none takes or returns a
// floating-point number. The child of vfork() may not return from here, so fork() serves.
#define CALL(name)                                                                                           \
    extern "C" long __real_##name(...);                                                                      \
    extern "C" long __wrap_##name(long a, long b, long c, long d, long e, long f);                           \
    long __wrap_##name(long a, long b, long c, long d, long e, long f)                                       \
    {                                                                                                        \
        if (IsDue(kCall_##name, __builtin_return_address(0))) {                                              \
            if (g_control->isMade)                                                                           \
                __real_##name(a, b, c, d, e, f);                                                             \
            errno = g_control->error;                                                                        \
            return g_control->result;                                                                        \
        }                                                                                                    \
        if constexpr (kCall_##name == kCall_clock_nanosleep)                                                 \
            NoteRest(c);                                                                                     \
        if constexpr (kCall_##name == kCall_vfork)                                                           \
            return fork();                                                                                   \
        else                                                                                                 \
            return __real_##name(a, b, c, d, e, f);                                                          \
    }
#include "calls.inc"
#undef CALL

namespace {

// Before main: from the server's first call on. The calls below are not to be counted.
__attribute__((constructor)) void Prepare()
{
    const auto file = static_cast<int>(syscall(SYS_openat, AT_FDCWD, kControlFile, O_RDWR | O_CLOEXEC));
    if (file < 0)
        return;
    void* const memory = mmap(nullptr, sizeof(FailureControl), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    syscall(SYS_close, file);
    static sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    pthread_t thread{};
    pthread_create(&thread, nullptr, ObeySignals, &signals);
    // The parser's memory comes through here as well.
    const auto allocate = [](size_t bytes) {
        return reinterpret_cast<void*>(__wrap_malloc(static_cast<long>(bytes), 0, 0, 0, 0, 0));
    };
    cJSON_Hooks hooks{allocate, free};
    cJSON_InitHooks(&hooks);
    g_control = static_cast<FailureControl*>(memory);
}

} // namespace
