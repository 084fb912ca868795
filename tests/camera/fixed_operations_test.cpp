#include "camera/fixed_operations.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "camera/camera_records.h"
#include "tests/camera/parameter_host.h"

namespace {

TEST(FixedOperations, AnswerByTheirPointersAlone)
{
    const uint32_t input = 0;
    uint32_t output[3] = {};
    for (const uint32_t command : {19U, 31U, 32U, 138U})
        EXPECT_EQ(RunCameraCommand(command, nullptr, nullptr), 0) << command;
    for (const uint32_t command : {51U, 89U}) {
        EXPECT_EQ(RunCameraCommand(command, &input, nullptr), 0) << command;
        EXPECT_EQ(RunCameraCommand(command, nullptr, output), -1) << command;
    }
    EXPECT_EQ(RunCameraCommand(55, nullptr, output), 0);
    EXPECT_EQ(RunCameraCommand(55, &input, nullptr), -1);
    for (const uint32_t command : {30U, 61U, 63U})
        EXPECT_EQ(RunCameraCommand(command, &input, nullptr), -1) << command;

    EXPECT_EQ(RunCameraCommand(30, nullptr, output), 0);
    EXPECT_EQ(std::to_array(output), (std::array<uint32_t, 3>{1, 1, 1}));
    output[0] = 7;
    EXPECT_EQ(RunCameraCommand(63, nullptr, output), 0);
    EXPECT_EQ(output[0], 1U);
}

TEST(FixedOperations, Command28SendsAZeroByte)
{
    Host().Take();
    EXPECT_EQ(RunCameraCommand(28, nullptr, nullptr), 0);
    EXPECT_EQ(Host().Take(), std::vector{Sent<uint8_t>(193, 0)});
}

TEST(FixedOperations, PresetsAreNumberedFromOne)
{
    static PtzPresetList list;
    EXPECT_EQ(RunCameraCommand(61, nullptr, &list), 0);
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
        const int status = RunCameraCommand(56, &stream, &frame);
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
    const uint32_t stream = 0;
    EXPECT_EQ(RunCameraCommand(56, nullptr, &frame), -1);
    EXPECT_EQ(RunCameraCommand(56, &stream, nullptr), -1);
    ASSERT_EQ(chdir("/"), 0);
}

} // namespace
