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
        {"steady", kFrame, {0, 40'000, 80'000}, {0, 40'000, 80'000}},
        {"late by 16 ms: an eighth is followed", kFrame, {0, 56'000}, {0, 42'000}},
        {"early", kFrame, {0, 24'000}, {0, 38'000}},
        {"a burst stays in order", kFrame, {0, 0, 0}, {0, 35'000, 65'625}},
        {"a pause is a pause", kFrame, {0, 5'000'000, 5'040'000}, {0, 5'000'000, 5'040'000}},
        {"no rate: as it arrives", 0, {0, 33'000, 70'000}, {0, 33'000, 70'000}},
        {"no rate, at once", 0, {0, 0, 0}, {0, 1'000, 2'000}},
        {"far behind: no step back", 2'000'000, {0, 100, 200}, {0, 1'000, 2'000}},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Stamps(c.arrivals, c.duration), c.stamps);
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
