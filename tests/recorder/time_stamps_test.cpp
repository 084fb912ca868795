#include "recorder/time_stamps.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

constexpr int64_t kFrame = 40'000;

// Arrivals to stamps, the frame lasting 40 ms.
std::vector<int64_t> Stamps(const std::vector<int64_t>& arrivals, int64_t duration)
{
    StampSmoother smoother;
    std::vector<int64_t> stamps;
    for (const int64_t arrival : arrivals)
        stamps.push_back(smoother.Stamp(arrival, duration));
    return stamps;
}

TEST(StampSmoother, FollowsTheRateAndTheArrival)
{
    const struct {
        const char* name;
        int64_t duration;
        std::vector<int64_t> arrivals;
        std::vector<int64_t> stamps;
    } kCases[] = {
        {"late by 16 ms: an eighth is followed", kFrame, {0, 56'000}, {0, 42'000}},
        {"early by 8 ms", kFrame, {0, 32'000}, {0, 39'000}},
        {"a burst keeps its distance", kFrame, {0, 0, 1'000, 40'000}, {0, 40'000, 80'000, 118'000}},
        {"no rate: as it arrives", 0, {0, 33'000, 70'000}, {0, 33'000, 70'000}},
        {"no rate, at once", 0, {0, 0, 0}, {0, 1'000, 2'000}},
        {"far ahead: never back", 2'000'000, {0, 100, 200}, {0, 1'000'000, 2'000'000}},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Stamps(c.arrivals, c.duration), c.stamps);
    }
}

// Something stands still for some seconds. When the frames of that time come after all, they come in a burst
// and nothing is seen of it; when they are lost, the stamps move on to the clock. Both end in step with it.
TEST(StampSmoother, TellsABacklogFromAPause)
{
    for (const bool lost : {false, true}) {
        SCOPED_TRACE(lost);
        StampSmoother smoother;
        int64_t last = -kFrame, widest = 0, narrowest = kFrame, arrival = 0;
        for (int64_t i = 0; i < 1'000; i++) {
            if (lost && i == 100)
                i = 225;
            arrival = i >= 100 && i < 225 ? 8'775'000 + i * 1'000 : i * kFrame;
            const int64_t stamp = smoother.Stamp(arrival, kFrame);
            widest = std::max(widest, stamp - last);
            narrowest = std::min(narrowest, stamp - last);
            last = stamp;
        }
        EXPECT_NEAR(static_cast<double>(last), static_cast<double>(arrival), 20'000);
        EXPECT_GE(narrowest, kFrame - kFrame / 20);
        if (lost)
            EXPECT_GT(widest, 4'000'000);
        else
            EXPECT_LT(widest, 2 * kFrame + kFrame / 2);
    }
}

// A camera that says 25 and delivers 24 frames a second must not drift away from the clock.
TEST(StampSmoother, StaysInStepWithTheClock)
{
    StampSmoother smoother;
    for (int64_t i = 0; i < 24 * 3600; i++) {
        const int64_t arrival = i * 1'000'000 / 24;
        ASSERT_NEAR(static_cast<double>(smoother.Stamp(arrival, kFrame)), static_cast<double>(arrival),
                    20'000);
    }
}

} // namespace
