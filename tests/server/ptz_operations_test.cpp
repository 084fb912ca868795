#include "camera/camera_commands.h"
#include "camera/ptz_commands.h"
#include "tests/camera/camera_setup.h"
#include "tests/exchange.h"

namespace {

constexpr int kAction = 290, kFocusing = 292, kMode = 293, kAperture = 294, kStep = 295;

TEST(Ptz, EveryActionIsSentAsTheCameraTakesIt)
{
    for (uint8_t action = 0; action < 30; ++action) {
        Host().Take();
        Host().answersFirstByte = action != 23; // its answer is otherwise the length of the value
        const bool carriesValue = (action >= 16 && action <= 18) || action == 25 || action == 26;
        const bool isSent = action < 27 && action != 19 && action != 20;
        const Request sent{kAction, {2, action, 0, 0, static_cast<uint8_t>(carriesValue ? 4 : 0)}};
        EXPECT_EQ(CameraControlPtz({0x102, action, 0x304, "name"}), 0);
        EXPECT_EQ(Host().Take(), std::vector<Request>(isSent ? 1 : 0, sent)) << int{action};
    }
    Host().answersFirstByte = false;
    PtzProperty property{0, 9, {}, 21, 22, 23, "lens"};
    EXPECT_EQ(CameraSetPTZProperty(&property), 0);
    EXPECT_EQ(Host().Take(), (std::vector<Request>{SentByte(kStep, 8), SentByte(kFocusing, 23),
                                                   SentByte(kMode, 21), SentByte(kAperture, 22)}));
}

TEST(Ptz, AReadTourCountsItsPointsAndFindsAPreset)
{
    constexpr size_t kLastTour = 68708 + 63 * 16 * 8; // of the second channel: preset, dwell, step, enable
    Host().Set<uint64_t>({{kLastTour, 0x090202010000012C}, {kLastTour + 15 * 8, 0x0801040300000007}});
    CruiseLine selector{};
    selector.ucCh = 1;
    selector.ucIndex = 31;
    selector.ucTourFlag = 40;
    selector.ucPointFlag = 7;
    CruiseLine line{};
    ASSERT_EQ(CameraGetCruiseLineProperty(&selector, &line), 0);
    EXPECT_EQ(line.ucTourFlag, 41); // enabled is 1 alone
    EXPECT_EQ(line.ucPointFlag, 15);
    EXPECT_EQ(line.point[0].ucPresetPointIndex, 300 & 0xFF);
    EXPECT_EQ(line.point[15].ucReserved2, 8);
    EXPECT_TRUE(line.point[15].ucCh == 1 && line.point[15].ucIndex == 31);
    for (const auto& [channel, tour] : std::vector<std::pair<uint8_t, uint8_t>>{{0, 32}, {2, 0}}) {
        selector.ucCh = channel;
        selector.ucIndex = tour;
        EXPECT_EQ(CameraGetCruiseLineProperty(&selector, &line), -1);
        EXPECT_EQ(line.ucTourFlag, 41);
        EXPECT_EQ(CameraSetCruiseLineProperty(&selector), -1);
    }
}

} // namespace
