#include "server/idle_detector.h"

#include "tests/captured_output.h"
#include "tests/exchange.h"
#include "tests/server/fakes.h"

namespace {

TEST(IdleDetector, EndsAConnectionThatIsThirtySecondsFromNow)
{
    const struct {
        uint32_t lastActive;
        uint32_t now;
        bool isKept;
    } cases[] = {{1000, 1000, true}, {1000, 1029, true}, {1000, 1030, false},   {1000, 971, true},
                 {1000, 970, false}, {10, 5, true},      {0, 4294967295, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.now);
        FakeUptime uptime(c.lastActive);
        const TestConnection connection(1, kFdCommand);
        IdleDetectorStep(c.now);
        EXPECT_EQ(connection.IsInTable(), c.isKept);
    }
}

TEST(IdleDetector, TrafficKeepsAConnection)
{
    FakeUptime uptime(1000);
    const TestConnection connection(1, kFdCommand);
    uptime.Set(1020);
    RefreshLastActive(connection.fd());
    IdleDetectorStep(1049);
    EXPECT_TRUE(connection.IsInTable());
}

TEST(IdleDetector, EndsTheWholeSessionAndAllWithoutLoginWithOneSilentMember)
{
    FakeUptime uptime(1000);
    const TestConnection silentMedia(5, kFdMainStream);
    const TestConnection silentNew(0);
    uptime.Set(1025);
    const TestConnection command(5, kFdCommand);
    const TestConnection otherNew(0);
    const TestConnection otherSession(6, kFdCommand);
    const CapturedOutput log;
    IdleDetectorStep(1030);
    EXPECT_EQ(GetConnectCount(), 1);
    EXPECT_TRUE(otherSession.IsInTable());
    const auto ended = [](int session, int slot, const TestConnection& connection) {
        return "[Trace]: VLMFdDetecter N: sessionid " + std::to_string(session) +
               " go to hell\n[Trace]: RemoveFd N: Remove " + std::to_string(slot) + " fd " +
               std::to_string(connection.fd()) + "\n";
    };
    EXPECT_EQ(log.Lines(), ended(5, 0, silentMedia) + ended(5, 2, command) + ended(0, 1, silentNew) +
                               ended(0, 3, otherNew));
}

} // namespace
