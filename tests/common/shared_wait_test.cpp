#include "common/shared_wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

struct Looks {
    std::atomic<int> made{0};
    int endsAt; // the look that finds something; 0: none
};

bool CountLook(void* argument)
{
    auto& looks = *static_cast<Looks*>(argument);
    return ++looks.made == looks.endsAt;
}

TEST(SharedWait, EndsWithTheLookThatFindsOrWithTheLast)
{
    for (const auto& [most, endsAt, made] : {std::tuple(1U, 0, 1U), {7U, 0, 7U}, {7U, 3, 3U}, {0U, 5, 5U}}) {
        Looks looks{.endsAt = endsAt};
        EXPECT_EQ(LookEvery(1, most, CountLook, &looks), made);
        EXPECT_EQ(looks.made, static_cast<int>(made));
    }
}

// Whoever leads leaves while others wait: each of them still makes all of its own looks, and no more.
TEST(SharedWait, EveryThreadMakesItsOwnLooks)
{
    Looks looks[8] = {};
    std::vector<std::thread> threads;
    for (uint32_t i = 0; i < 8; i++)
        threads.emplace_back([&, i] {
            for (uint32_t turn = 0; turn < 20; turn++)
                EXPECT_EQ(LookEvery(1 + i % 3, 1 + (i + turn) % 5, CountLook, &looks[i]), 1 + (i + turn) % 5);
        });
    for (std::thread& thread : threads)
        thread.join();
    for (const Looks& each : looks)
        EXPECT_EQ(each.made, 4 * (1 + 2 + 3 + 4 + 5));
}

// The one that sleeps for all must not sleep beyond the time at which another one is due.
TEST(SharedWait, ShortWaitsDoNotWaitForLongOnes)
{
    Looks slow{.endsAt = 1}, quick{};
    std::thread waiting([&] { LookEvery(2000, 0, CountLook, &slow); });
    while (slow.made == 0 && quick.made < 30)
        LookEvery(1, 3, CountLook, &quick);
    EXPECT_EQ(quick.made, 30) << "stopped by a thread that was due in two seconds";
    waiting.join();
}

} // namespace
