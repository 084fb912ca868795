#include "hosts/motors.h"

#include <gtest/gtest.h>

#include "tests/table.h"

namespace {

constexpr uint8_t kGoTo = 100; // in the table: to the preset
constexpr int64_t kDays = 86400000;

void ExpectNear(const HeadPosition& position, const HeadPosition& expected)
{
    EXPECT_NEAR(position.pan, expected.pan, 0.01);
    EXPECT_NEAR(position.tilt, expected.tilt, 0.01);
    EXPECT_NEAR(position.zoom, expected.zoom, 0.01);
}

TEST(Motors, MoveAtTheStepsSpeedWithinTheirLimits)
{
    Motors motors;
    motors.SetPreset(9, {40, -20, 2});
    int64_t nowMs = 1'000'000;
    EXPECT_FALSE(motors.GoToPreset(8, nowMs) || motors.Act(16, nowMs) || motors.Act(27, nowMs));
    EXPECT_TRUE(motors.Act(10, nowMs) && motors.Act(0, nowMs)) << "is as wide as it can be";
    EXPECT_FALSE(motors.HasMoved());
    for (const TableRow& row : ReadTable(VELMORA_HOSTS_DATA "/motors.tsv", 7)) {
        SCOPED_TRACE(row[0]);
        const auto action = static_cast<uint8_t>(stoi(row[2]));
        motors.SetStep(static_cast<uint8_t>(stoi(row[1])));
        EXPECT_TRUE(action == kGoTo ? motors.GoToPreset(9, nowMs) : motors.Act(action, nowMs));
        (void)motors.At(nowMs + stoi(row[3]) / 3); // asking changes nothing
        nowMs += stoi(row[3]);
        ExpectNear(motors.At(nowMs), {stod(row[4]), stod(row[5]), stod(row[6])});
    }
    EXPECT_TRUE(motors.HasMoved());
}

TEST(Motors, VisitTheToursPointsEndlessly)
{
    Motors motors;
    motors.SetPreset(1, {80, 0, 1});
    motors.SetPreset(2, {80, 40, 1});
    const std::vector<TourPoint> points = {{1, 8, 5}, {7, 8, 5}, {2, 1, 0}};
    EXPECT_FALSE(motors.StartTour(0, {{7, 8, 5}}, 0)) << "no such preset";
    ASSERT_TRUE(motors.StartTour(4, points, 0));
    EXPECT_FALSE(motors.StopTour(0, 0)) << "another one runs";
    // One second there and five of rest, eight seconds up and a second of rest, one down and five of rest.
    constexpr int64_t kRounds = 15000 * 100000LL;
    const std::pair<int64_t, double> kTilts[] = {{5999, 0},  {8000, 10}, {14500, 40},        {15500, 20},
                                                 {20900, 0}, {22000, 5}, {6000 + kRounds, 0}};
    for (const auto& [atMs, tilt] : kTilts)
        ExpectNear(motors.At(atMs), {80, tilt, 1});
    const int64_t nowMs = 15500 + kRounds;
    EXPECT_TRUE(motors.Act(24, nowMs)) << "whatever moves the head ends the tour";
    ExpectNear(motors.At(nowMs + kDays), {80, 20, 1});
    EXPECT_FALSE(motors.StopTour(4, nowMs + kDays));
    ASSERT_TRUE(motors.StartTour(4, points, nowMs + kDays) && motors.StopTour(4, nowMs + kDays + 100));
    ExpectNear(motors.At(nowMs + 2 * kDays), {80, 16, 1});
}

} // namespace
