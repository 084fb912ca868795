#include "camera/fixed_operations.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "camera/further_commands.h"
#include "tests/camera/camera_setup.h"

namespace {

TEST(FixedOperations, TestFramesComeInTurnAndWrap)
{
    for (const char* folder : {"/var/frames", "/var/frames/VideoData720P", "/var/frames/VideoData720P_Sub"})
        ASSERT_EQ(mkdir(folder, 0755), 0);
    ASSERT_EQ(chdir("/var/frames"), 0);
    for (const char* name : {"/Data0000", "_Sub/Data0000", "_Sub/Data0001", "/Data0899"})
        std::ofstream(std::string("VideoData720P") + name + ".txt") << name[1] << name + strlen(name) - 4;
    uint8_t buffer[5];
    TestVideoFrame frame{buffer, 5, 0};
    const auto next = [&](uint32_t stream) {
        const int status = CameraGetTestVideoFrame(stream, &frame);
        return status == 0 ? std::string(buffer, buffer + frame.ulBytes) : std::to_string(status);
    };
    EXPECT_EQ(next(0), "D0000");
    EXPECT_EQ(next(1), "S0000");
    EXPECT_EQ(next(77), "S0001") << "any other stream is the sub stream";
    for (int number = 1; number < 899; number++)
        EXPECT_EQ(next(0), "-7") << number;
    EXPECT_EQ(next(0), "D0899");
    frame.ulCapacity = 4;
    EXPECT_EQ(next(0), "-1") << "the first again, larger than the buffer";
    ASSERT_EQ(chdir("/"), 0);
}

} // namespace
