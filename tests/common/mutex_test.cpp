#include "common/mutex.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

// The analysis of the clang build knows no recursion, so the second taking is hidden from it.
void TakeAgain(RecursiveMutex* mutex) NO_THREAD_SAFETY_ANALYSIS
{
    MutexLock(mutex);
    MutexUnlock(mutex);
}

TEST(RecursiveMutex, IsTakenAgainByItsHolderAndRefusedToOthersUntilTheLastRelease)
{
    RecursiveMutex mutex;
    ASSERT_EQ(MutexCreate(&mutex), 0);
    int error = 0;
    const auto tryIt = [&] {
        error = pthread_mutex_trylock(&mutex.mutex);
        if (error == 0)
            pthread_mutex_unlock(&mutex.mutex);
    };
    {
        const RecursiveLocked outer(&mutex);
        TakeAgain(&mutex);
        std::thread(tryIt).join();
        EXPECT_EQ(error, EBUSY);
    }
    std::thread(tryIt).join();
    EXPECT_EQ(error, 0);
    EXPECT_EQ(MutexDestroy(&mutex), 0);
}

} // namespace
