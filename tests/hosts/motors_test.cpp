#include "hosts/motors.h"

#include <gtest/gtest.h>

#include "hosts/test_card.h"

namespace {

constexpr uint8_t kGoTo = 100; // in the table below: to the preset
constexpr int64_t kDays = 86400000;

void ExpectNear(const HeadPosition& position, const HeadPosition& expected)
{
    EXPECT_NEAR(position.pan, expected.pan, 0.01);
    EXPECT_NEAR(position.tilt, expected.tilt, 0.01);
    EXPECT_NEAR(position.zoom, expected.zoom, 0.01);
}

TEST(Motors, MoveAtTheStepsSpeedWithinTheirLimits)
{
    constexpr HeadPosition kPreset = {40, -20, 2};
    const struct {
        const char* name;
        uint8_t step, action;
        int64_t afterMs; // the action lasts so long
        HeadPosition then;
    } kRows[] = {
        {"Right", 3, 2, 2000, {60, 0, 1}},
        {"Stop", 3, 0, 5000, {60, 0, 1}},
        {"UpAndLeft", 1, 5, 4000, {20, 20, 1}},
        {"AnotherDirection", 1, 8, 1000, {30, 15, 1}},
        {"ZoomInWhileMoving", 5, 9, 2000, {50, 5, 2}},
        {"ZoomStopsAlone", 5, 24, 1000, {60, 0, 2}},
        {"TheLensIsNotTheHead", 5, 13, 1000, {70, -5, 2}},
        {"HeadStops", 8, 0, kDays, {70, -5, 2}},
        {"GoToAtFullSpeed", 1, kGoTo, 250, {50, -15, 2}},
        {"GoToArrives", 1, kGoTo, 1000, kPreset},
        {"GoToAgain", 1, kGoTo, kDays, kPreset},
        {"LeftAboveTheLastStep", 200, 1, 1000, {-40, -20, 2}},
        {"RightAndUpToTheLimits", 8, 7, kDays, {170, 90, 2}},
        {"ZoomToTheLimit", 8, 9, kDays, {170, 90, 16}},
        {"StepBelowTheFirst", 0, 4, 2000, {170, 80, 16}},
        {"ZoomOut", 5, 10, kDays, {170, -30, 1}},
        {"ADirectionEndsAGoTo", 8, kGoTo, 1000, {90, -20, 1.7411}},
        {"Up", 8, 3, 500, {90, 0, 1.7411}},
    };
    Motors motors;
    motors.SetPreset(9, kPreset);
    int64_t nowMs = 1'000'000;
    EXPECT_FALSE(motors.GoToPreset(8, nowMs) || motors.Act(16, nowMs) || motors.Act(27, nowMs));
    EXPECT_TRUE(motors.Act(10, nowMs) && motors.Act(0, nowMs)) << "is as wide as it can be";
    EXPECT_FALSE(motors.HasMoved());
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        motors.SetStep(row.step);
        EXPECT_TRUE(row.action == kGoTo ? motors.GoToPreset(9, nowMs) : motors.Act(row.action, nowMs));
        (void)motors.At(nowMs + row.afterMs / 3); // asking changes nothing
        nowMs += row.afterMs;
        ExpectNear(motors.At(nowMs), row.then);
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

TEST(TestCard, ShowsTheSceneWhereTheHeadLooks)
{
    constexpr int kMagenta = 84;
    constexpr int kGreen = 112;
    constexpr int kCyan = 131;
    constexpr int kHorizon = 235;
    const struct {
        const char* name;
        HeadPosition view;
        int column, row, luma; // of 960 x 480, so a degree has 16 pixels and the scene 330 rows
    } kRows[] = {
        {"RightOfTheMiddle", {}, 500, 200, kMagenta},
        {"OnTheHorizon", {}, 500, 165, kHorizon},
        {"PannedLeft", {-7.5, 0, 1}, 500, 200, kGreen},
        {"ATurnOfTheBarsFurther", {60, 0, 1}, 500, 200, kMagenta},
        {"TiltedUp", {0, 5, 1}, 500, 245, kHorizon},
        {"Wide", {7, 0, 1}, 460, 200, kMagenta},
        {"Tele", {7, 0, 16}, 0, 200, kMagenta},
        {"AtTheFarEnd", {170, 90, 1}, 479, 200, kCyan},
    };
    TestCard card(960, 480);
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        const AVFrame& picture = card.Draw(0, row.view, "");
        EXPECT_EQ(picture.data[0][row.row * picture.linesize[0] + row.column], row.luma);
    }
}

} // namespace
