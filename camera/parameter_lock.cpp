#include "camera/parameter_lock.h"

#include <atomic>
#include <cerrno>
#include <cstdio>

#include "common/mutex.h"

namespace {

Mutex g_sendLock;
std::atomic<bool> g_sendLockExists{false}; // cleared only by the holder of the lock

} // namespace

int Sem_Creat()
{
    if (g_sendLockExists.load())
        return 0;
    if (const int error = pthread_mutex_init(g_sendLock.native(), nullptr)) {
        fputs(error == ENOMEM ? "Error: Not enough memory!!\n" : "Error: Sem_Creat init faill!!\n", stderr);
        return -1;
    }
    g_sendLockExists.store(true);
    return 0;
}

bool SemExists()
{
    return g_sendLockExists.load();
}

// The analysis cannot follow a lock that is taken only when it exists.
int SemWait() NO_THREAD_SAFETY_ANALYSIS
{
    if (g_sendLockExists.load()) {
        g_sendLock.Lock();
        if (g_sendLockExists.load())
            return 0;
        g_sendLock.Unlock(); // it was given up while we waited
    }
    fputs("Error: SemWait: Invalid Semaphore handler\n", stderr);
    return -1;
}

int SemRelease() NO_THREAD_SAFETY_ANALYSIS
{
    if (!g_sendLockExists.load()) {
        fputs("Error: SemRelease: Invalid Semaphore handler\n", stderr);
        return -1;
    }
    g_sendLock.Unlock();
    return 0;
}

int DestroySem() NO_THREAD_SAFETY_ANALYSIS
{
    if (!g_sendLockExists.load()) {
        fputs("Error: DestroySem: Invalid Semaphore handler\n", stderr);
        return -1;
    }
    g_sendLock.Lock();
    g_sendLockExists.store(false);
    g_sendLock.Unlock();
    if (pthread_mutex_destroy(g_sendLock.native()) != 0) {
        fputs("Error: Sem_kill faill!!\n", stderr);
        return -1;
    }
    return 0;
}
