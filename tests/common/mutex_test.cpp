#include "common/mutex.h"

#include <gtest/gtest.h>

namespace {

TEST(RecursiveMutex, IsTakenAgainByItsHolderAndRefusedToOthersUntilTheLastRelease)
{
    RecursiveMutex mutex;
    ASSERT_EQ(MutexCreate(&mutex), 0);
    const auto tryFromAnotherThread = [&mutex] {
        pthread_t thread{};
        void* result = nullptr;
        pthread_create(
            &thread, nullptr,
            [](void* raw) -> void* {
                const int error = pthread_mutex_trylock(static_cast<pthread_mutex_t*>(raw));
                if (error == 0)
                    pthread_mutex_unlock(static_cast<pthread_mutex_t*>(raw));
                return reinterpret_cast<void*>(static_cast<intptr_t>(error));
            },
            &mutex.mutex);
        pthread_join(thread, &result);
        return static_cast<int>(reinterpret_cast<intptr_t>(result));
    };
    {
        const RecursiveLocked outer(&mutex);
        {
            const RecursiveLocked inner(&mutex);
        }
        EXPECT_EQ(tryFromAnotherThread(), EBUSY);
    }
    EXPECT_EQ(tryFromAnotherThread(), 0);
    EXPECT_EQ(MutexDestroy(&mutex), 0);
}

} // namespace
