// Locks of the process: an annotated mutex with its scope holder, a condition to wait on, and the
// recursive mutex helpers of the protocol server.
//
// Every lock in the program is one of these two kinds and stands in docs/architecture.md, "Locks".
#pragma once

#include <pthread.h>

#include <cstdint>

#include "common/thread_annotations.h"

// A plain mutex, ready without set-up, so that module state can be constant-initialised.
class CAPABILITY("mutex") Mutex {
  public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;
    void Lock() ACQUIRE() { pthread_mutex_lock(&mutex_); }
    void Unlock() RELEASE() { pthread_mutex_unlock(&mutex_); }
    pthread_mutex_t* native() { return &mutex_; }

  private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

// Holds a Mutex for a scope.
class SCOPED_CAPABILITY Locked {
  public:
    explicit Locked(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.Lock(); }
    ~Locked() RELEASE() { mutex_.Unlock(); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

  private:
    Mutex& mutex_;
};

// A condition that is waited on under a Mutex. A wait may end without a signal: test again.
class Condition {
  public:
    Condition() = default;
    Condition(const Condition&) = delete;
    Condition& operator=(const Condition&) = delete;
    void Wait(Mutex& mutex) REQUIRES(mutex) { pthread_cond_wait(&condition_, mutex.native()); }
    void Signal() { pthread_cond_signal(&condition_); }

  private:
    pthread_cond_t condition_ = PTHREAD_COND_INITIALIZER;
};

// The mutex kind of the protocol server: recursive, created before its first use.
struct CAPABILITY("mutex") RecursiveMutex {
    pthread_mutex_t mutex;
};

// Creates the mutex with the recursive type. Returns 0, or the error number when its attribute
// cannot be set up (logged at warning level).
int MutexCreate(RecursiveMutex* mutex);
// Always returns 0: when locking fails, a warning is logged and the caller goes on without the lock.
int MutexLock(RecursiveMutex* mutex) ACQUIRE(*mutex);
// Returns false when the mutex could not be had within that time, which counts on the clock of the day: one
// that is set back meanwhile makes the wait longer. 0 only tries.
bool MutexTryLock(RecursiveMutex* mutex, uint32_t waitMs) TRY_ACQUIRE(true, *mutex);
int MutexUnlock(RecursiveMutex* mutex) RELEASE(*mutex);
int MutexDestroy(RecursiveMutex* mutex);

// Holds a RecursiveMutex for a scope.
class SCOPED_CAPABILITY RecursiveLocked {
  public:
    explicit RecursiveLocked(RecursiveMutex* mutex) ACQUIRE(*mutex) : mutex_(mutex) { MutexLock(mutex_); }
    ~RecursiveLocked() RELEASE() { MutexUnlock(mutex_); }
    RecursiveLocked(const RecursiveLocked&) = delete;
    RecursiveLocked& operator=(const RecursiveLocked&) = delete;

  private:
    RecursiveMutex* mutex_;
};
