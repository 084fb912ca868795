#include "common/log.h"

#include "tests/captured_output.h"

namespace {

// First in the file and in the program: logging can be switched on only once.
TEST(Log, WritesNothingBeforeLogInitAndEveryLevelAfterIt)
{
    const CapturedOutput captured({STDERR_FILENO}, /* isLogging= */ false);
    LogTrace("early\n");
    EXPECT_EQ(captured.Text(), "");
    LogInit("VelmoraAccess", 3);
    LogTrace("a %d\n", 1);
    LogError("b\n");
    LogWarn("c\n");
    LogInfo("d\n");
    LogDebug("e");
    EXPECT_EQ(captured.Text(), "[Trace]: a 1\n[Error]: b\n[Warn]: c\n[Info]: d\n[Debug]: e");
}

TEST(Log, CutsLongTexts)
{
    const CapturedOutput captured;
    LogTrace("%s", std::string(30000, 'x').c_str());
    EXPECT_EQ(captured.Text(), "[Trace]: " + std::string(20478, 'x'));
}

TEST(Log, KeepsLinesOfConcurrentThreadsWhole)
{
    constexpr int kLines = 200;
    const std::string line(1000, 'y');
    const CapturedOutput captured;
    const auto write = [&line] {
        for (int i = 0; i < kLines; i++)
            LogTrace("%s\n", line.c_str());
    };
    std::thread other(write);
    write();
    other.join();
    std::string expected;
    for (int i = 0; i < 2 * kLines; i++)
        expected += "[Trace]: " + line + "\n";
    EXPECT_TRUE(captured.Text() == expected);
}

} // namespace
