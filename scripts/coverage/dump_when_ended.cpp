// The server runs until it is killed, and a killed program writes no counts. Where coverage is measured, a
// thread of its own waits for SIGTERM and writes them then.
#include <pthread.h>
#include <unistd.h>

#include <csignal>

extern "C" void __gcov_dump(void);

namespace {

sigset_t OnlyTerminate()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    return signals;
}

void* DumpWhenEnded(void* /*unused*/)
{
    const sigset_t signals = OnlyTerminate();
    int signal = 0;
    (void)sigwait(&signals, &signal);
    __gcov_dump();
    _exit(0);
}

// Runs before main, so that every thread of the server is born with the signal blocked.
[[gnu::constructor]] void Start()
{
    const sigset_t signals = OnlyTerminate();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    pthread_t thread{};
    if (pthread_create(&thread, nullptr, DumpWhenEnded, nullptr) == 0)
        (void)pthread_detach(thread);
}

} // namespace
