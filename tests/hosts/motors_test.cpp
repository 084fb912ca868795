#include "hosts/motors.h"

#include <gtest/gtest.h>

#include "tests/table.h"

namespace {

constexpr uint8_t kGoTo = 100; // in the table: to the preset

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

} // namespace
