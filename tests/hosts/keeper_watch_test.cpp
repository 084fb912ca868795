#include "hosts/keeper_watch.h"

#include <gtest/gtest.h>

namespace {

TEST(SlotWatch, TellsWhenTheServerTurnsAliveAndStale)
{
    SlotWatch watch;
    const struct {
        const char* name;
        int64_t nowMs;
        uint32_t slotTime;
        std::optional<bool> expected;
    } kLooks[] = {
        {"an old life's time proves nothing", 0, 500, std::nullopt},
        {"nor does it a second time", 1000, 500, std::nullopt},
        {"written", 2000, 502, true},
        {"unchanged between two writes", 3000, 502, std::nullopt},
        {"written again", 4000, 504, std::nullopt},
        {"just not stale", 10999, 504, std::nullopt},
        {"stale", 11000, 504, false},
        {"still stale", 12000, 504, std::nullopt},
        {"back, with a clock that was set back", 13000, 100, true},
    };
    for (const auto& look : kLooks)
        EXPECT_EQ(watch.Look(look.slotTime, look.nowMs), look.expected) << look.name;
}

} // namespace
