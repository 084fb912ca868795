#include "common/mutex.h"

#include <cstring>

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
