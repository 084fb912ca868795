#include "server/idle_detector.h"

#include "tests/exchange.h"
#include "tests/server/wrapped.h"

namespace {

TEST(IdleDetector, EndsAConnectionThatIsThirtySecondsFromNow)
{
    const struct {
        uint32_t lastActive;
        uint32_t now;
        bool isKept;
    } cases[] = {{1000, 1029, true}, {1000, 1030, false}, {1000, 971, true},
                 {1000, 970, false}, {10, 5, true},       {0, 4294967295, false}};
    for (const auto& c : cases) {
        const FakeUptime uptime(c.lastActive);
        const TestConnection connection(1, kFdCommand);
        IdleDetectorStep(c.now);
        EXPECT_EQ(connection.IsInTable(), c.isKept) << c.now;
    }
}

} // namespace
