#include "common/log.h"

#include <pthread.h>

#include <algorithm>
#include <string>

#include "tests/capture.h"

namespace {

// First in the file and in the program: logging can be switched on only once.
TEST(Log, WritesNothingBeforeLogInitAndEveryLevelAfterIt)
{
    const CaptureFd captured(STDERR_FILENO);
    LogTrace("early\n");
    EXPECT_EQ(captured.Text(), "");
    LogInit("OnvifAccess", 3);
    LogTrace("a %d\n", 1);
    LogError("b\n");
    LogWarn("c\n");
    LogInfo("d\n");
    LogDebug("e");
    EXPECT_EQ(captured.Text(), "[Trace]: a 1\n[Error]: b\n[Warn]: c\n[Info]: d\n[Debug]: e");
}

TEST(Log, CutsLongTexts)
{
    LogInit("", 0);
    const CaptureFd captured(STDERR_FILENO);
    LogTrace("%s", std::string(30000, 'x').c_str());
    EXPECT_EQ(captured.Text(), "[Trace]: " + std::string(20478, 'x'));
}

TEST(Log, KeepsLinesOfConcurrentThreadsWhole)
{
    LogInit("", 0);
    constexpr int kLines = 200;
    const std::string line(1000, 'y');
    const CaptureFd captured(STDERR_FILENO);
    ASSERT_EQ(fcntl(STDERR_FILENO, F_SETFL, O_APPEND), 0); // as standard error of a service is
    pthread_t threads[4];
    for (pthread_t& thread : threads)
        ASSERT_EQ(pthread_create(
                      &thread, nullptr,
                      [](void* text) -> void* {
                          for (int i = 0; i < kLines; i++)
                              LogTrace("%s\n", static_cast<const char*>(text));
                          return nullptr;
                      },
                      const_cast<char*>(line.c_str())),
                  0);
    for (const pthread_t thread : threads)
        pthread_join(thread, nullptr);
    std::string expected;
    for (size_t i = 0; i < std::size(threads) * kLines; i++)
        expected += "[Trace]: " + line + "\n";
    EXPECT_TRUE(captured.Text() == expected);
}

} // namespace
