#include "common/mutex.h"

#include <cstring>
#include <ctime>

#include "common/log.h"

int MutexCreate(RecursiveMutex* mutex)
{
    pthread_mutexattr_t attribute;
    int error = pthread_mutexattr_init(&attribute);
    if (error == 0) {
        error = pthread_mutexattr_settype(&attribute, PTHREAD_MUTEX_RECURSIVE);
        if (error == 0)
            pthread_mutex_init(&mutex->mutex, &attribute);
        pthread_mutexattr_destroy(&attribute);
    }
    if (error != 0)
        LogWarn("create mutex attribute error. msg:%s", strerror(error));
    return error;
}

int MutexLock(RecursiveMutex* mutex) NO_THREAD_SAFETY_ANALYSIS
{
    if (const int ret = pthread_mutex_lock(&mutex->mutex))
        LogWarn("ret = %d linux_mutex = %p\n", ret, static_cast<void*>(&mutex->mutex));
    return 0;
}

bool MutexTryLock(RecursiveMutex* mutex, uint32_t waitMs) NO_THREAD_SAFETY_ANALYSIS
{
    if (pthread_mutex_trylock(&mutex->mutex) == 0)
        return true;
    if (waitMs == 0)
        return false;
    timespec until{};
    clock_gettime(CLOCK_REALTIME, &until); // not the steady clock, which not every C library can wait on here
    const int64_t ns = until.tv_nsec + int64_t{waitMs} * 1000000;
    until.tv_sec += static_cast<time_t>(ns / 1000000000);
    until.tv_nsec = static_cast<long>(ns % 1000000000);
    return pthread_mutex_timedlock(&mutex->mutex, &until) == 0;
}

int MutexUnlock(RecursiveMutex* mutex) NO_THREAD_SAFETY_ANALYSIS
{
    pthread_mutex_unlock(&mutex->mutex);
    return 0;
}

int MutexDestroy(RecursiveMutex* mutex)
{
    pthread_mutex_destroy(&mutex->mutex);
    return 0;
}
