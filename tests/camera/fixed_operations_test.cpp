#include "camera/fixed_operations.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <fstream>

#include "camera/further_commands.h"
#include "tests/camera/parameter_host.h"

namespace {

TEST(FixedOperations, AnswerByTheirPointersAlone)
{
    const uint32_t input = 0;
    uint32_t output = 7;
    ChannelEnable enable{};
    const int good[] = {CameraReserved19(),          CameraReserved31(),
                        CameraReserved32(),          CameraReserved138(),
                        CameraReserved51(&input),    CameraReserved55(&output),
                        CameraSetMobilePort(&input), CameraGetChannelEnable(&enable),
                        CameraCmd63(&output)};
    EXPECT_EQ(std::to_array(good), (std::array<int, 9>{}));
    EXPECT_EQ(std::to_array(enable.ulEnable), (std::array<uint32_t, 3>{1, 1, 1}));
    EXPECT_EQ(output, 1U);
    for (const int command : {30, 51, 55, 56, 61, 63, 89})
        EXPECT_EQ(RunCameraCommand(static_cast<uint32_t>(command), nullptr, nullptr), -1) << command;
}

TEST(FurtherCommands, WithNamesOfTheirOwnLogThem)
{
    uint32_t record = 0;
    testing::internal::CaptureStderr();
    for (auto* const get :
         {CameraGetUpGradeFileSaveName, CameraGetDateTimeProperty, CameraGetPTZSerialProperty})
        EXPECT_EQ(get(&record), -5);
    for (auto* const set : {CameraSetDateTimeProperty, CameraCheckUpGradeFile, CameraSetPTZSerialProperty,
                            CameraSetPTZ3DZoom, CameraSetPreviewModeConfig})
        EXPECT_EQ(set(&record), -5);
    EXPECT_EQ(CameraGetPlayBackQueryFiles(&record, &record), -5);
    const std::string output = testing::internal::GetCapturedStderr();
    for (const char* name : {"GetUpGradeFileSaveName", "GetDateTimeProperty", "GetPTZSerialProperty",
                             "SetDateTimeProperty", "CheckUpGradeFile", "SetPTZSerialProperty",
                             "SetPTZ3DZoom", "SetPreviewModeConfig", "GetPlayBackQueryFiles"})
        EXPECT_NE(output.find(std::string("[Trace]: Camera") + name + " "), std::string::npos) << name;
    EXPECT_EQ(CameraSetResolution2(0, 1, 1), -5);
    EXPECT_EQ(CameraGetPlayBackQueryFiles(&record, nullptr), -1);
}

TEST(FixedOperations, Command28SendsAZeroByte)
{
    Host().Take();
    EXPECT_EQ(CameraCmd28(), 0);
    EXPECT_EQ(Host().Take(), std::vector{Sent<uint8_t>(193, 0)});
}

TEST(FixedOperations, PresetsAreNumberedFromOne)
{
    static PtzPresetList list;
    EXPECT_EQ(CameraGetPtzPresets(&list), 0);
    EXPECT_STREQ(list.preset[0].szName, "PTZ0001");
    EXPECT_STREQ(list.preset[127].szName, "PTZ0128");
    for (const float coordinate : {list.preset[127].fPan, list.preset[127].fTilt, list.preset[127].fZoom})
        EXPECT_EQ(coordinate, -50.0F);
}

TEST(FixedOperations, TestFramesComeInTurnAndWrap)
{
    ASSERT_EQ(mkdir("/var/frames", 0755), 0);
    ASSERT_EQ(chdir("/var/frames"), 0);
    for (const char* folder : {"VideoData720P", "VideoData720P_Sub"}) {
        ASSERT_EQ(mkdir(folder, 0755), 0);
        for (const char* number : {"0000", "0001", "0899"})
            std::ofstream(std::string(folder) + "/Data" + number + ".txt") << folder[13] << number;
    }
    uint8_t buffer[5];
    TestVideoFrame frame{buffer, 5, 0};
    const auto next = [&](uint32_t stream) {
        const int status = CameraGetTestVideoFrame(stream, &frame);
        return status == 0 ? std::string(buffer, buffer + frame.ulBytes) : std::to_string(status);
    };
    const std::string main = std::string(1, '\0');
    EXPECT_EQ(next(0), main + "0000");
    EXPECT_EQ(next(1), "_0000");
    EXPECT_EQ(next(77), "_0001") << "any other stream is the sub stream";
    EXPECT_EQ(next(0), main + "0001");
    for (int number = 2; number < 899; number++)
        EXPECT_EQ(next(0), "-7") << number;
    EXPECT_EQ(next(0), main + "0899");
    EXPECT_EQ(next(0), main + "0000");
    frame.ulCapacity = 4;
    EXPECT_EQ(next(0), "-1") << "a frame larger than the buffer";
    EXPECT_EQ(RunCameraCommand(56, nullptr, &frame), -1);
    EXPECT_EQ(CameraGetTestVideoFrame(0, nullptr), -1);
    ASSERT_EQ(chdir("/"), 0);
}

} // namespace
