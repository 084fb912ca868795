#include "hosts/alarm_source.h"

#include <gtest/gtest.h>

namespace {

TEST(AlarmSource, FollowsItsSchedule)
{
    const auto schedule = MotionScheduleOfText("every=10,for=2.5");
    ASSERT_TRUE(schedule);
    const struct {
        int elapsedMs, atMs;
        bool motion;
    } kRows[] = {{0, 10000, true},      {2400, 10000, true},  {10000, 12500, false},
                 {12499, 12500, false}, {12500, 20000, true}, {20000, 22500, false}};
    for (const auto& row : kRows) {
        const MotionChange next = NextMotionChange(*schedule, std::chrono::milliseconds(row.elapsedMs));
        EXPECT_TRUE(next.at.count() == row.atMs && next.motion == row.motion) << row.elapsedMs;
    }
    for (const char* text :
         {"", "every=10", "every=10,for=10", "every=3,for=10", "every=0,for=0", "every=1,for=0",
          "every=1,for=0.0001", "every=nan,for=1", "every=1e9,for=1", "every=2,for=1s"})
        EXPECT_FALSE(MotionScheduleOfText(text)) << text;
}

} // namespace
