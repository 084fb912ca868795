#include "common/mutex.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

// The analysis of the clang build knows no recursion, so the second taking is hidden from it.
void TakeAgain(RecursiveMutex* mutex) NO_THREAD_SAFETY_ANALYSIS
{
    EXPECT_TRUE(MutexTryLock(mutex, 0));
    MutexUnlock(mutex);
}

TEST(RecursiveMutex, IsTakenAgainByItsHolderAndRefusedToOthersUntilTheLastRelease)
{
    RecursiveMutex mutex;
    ASSERT_EQ(MutexCreate(&mutex), 0);
    {
        const RecursiveLocked outer(&mutex);
        TakeAgain(&mutex);
        std::thread([&] { EXPECT_FALSE(MutexTryLock(&mutex, 0)); }).join();
    }
    std::thread([&] { TakeAgain(&mutex); }).join();
    EXPECT_EQ(MutexDestroy(&mutex), 0);
}

} // namespace
