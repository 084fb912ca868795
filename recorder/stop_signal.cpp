#include "recorder/stop_signal.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>

namespace {

volatile sig_atomic_t g_stopFd = -1; // written before the handler stands, then only read

void OnStop(int)
{
    const int savedErrno = errno;
    const uint64_t one = 1;
    (void)!write(g_stopFd, &one, sizeof one); // cannot be full: the second signal ends the process
    errno = savedErrno;
}

} // namespace

int CatchStopSignals()
{
    g_stopFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (g_stopFd < 0)
        return -1;
    struct sigaction action {};
    action.sa_handler = OnStop;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    return g_stopFd;
}
