#include "recorder/time_stamps.h"

#include <gtest/gtest.h>

#include <utility>

constexpr int64_t kFrame = 40'000;

// Without a rate frames are stamped as they arrive, but a file takes no stamp twice.
TEST(StampSmoother, GivesNoStampTwice)
{
    StampSmoother smoother;
    for (const auto& [arrival, stamp] : {std::pair{0, 0}, {33'000, 33'000}, {33'000, 34'000}})
        EXPECT_EQ(smoother.Stamp(arrival, 0), stamp);
}

// Something stands still for five seconds. When the frames of that time come after all, they come in a burst
// and nothing is seen of it; when they are lost, the stamps move on to the clock. Both end in step with it.
TEST(StampSmoother, TellsABacklogFromAPause)
{
    for (const bool lost : {false, true}) {
        StampSmoother smoother;
        int64_t last = -kFrame, widest = 0, narrowest = kFrame, arrival = 0;
        for (int64_t i = 0; i < 1'000; i += lost && i == 99 ? 126 : 1) {
            arrival = i >= 100 && i < 225 ? 8'775'000 + i * 1'000 : i * kFrame;
            const int64_t stamp = smoother.Stamp(arrival, kFrame);
            widest = std::max(widest, stamp - last);
            narrowest = std::min(narrowest, stamp - last);
            last = stamp;
        }
        EXPECT_LE(std::abs(last - arrival), 20'000) << lost;
        EXPECT_GE(narrowest, kFrame - kFrame / 20) << lost;
        EXPECT_TRUE(lost ? widest > 4'000'000 : widest < 2 * kFrame + kFrame / 2) << lost << " " << widest;
    }
}

// A camera that says 25 and delivers 24 frames a second must not drift away from the clock.
TEST(StampSmoother, StaysInStepWithTheClock)
{
    StampSmoother smoother;
    for (int64_t i = 0; i < 24 * 3600; i++)
        ASSERT_LE(std::abs(smoother.Stamp(i * 1'000'000 / 24, kFrame) - i * 1'000'000 / 24), 20'000);
}
