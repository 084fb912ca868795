// The debug console: one client at a time sees the log, and nobody waits for it.

#include "tests/e2e/harness/camera_test.h"

namespace {

constexpr uint16_t kConsolePort = 414;
constexpr auto kTrace = "ProcessKeepaliveReq";              // of each keepalive, in the log
constexpr auto kPrint = "BYTE_PRINT \n0xFF 0x01 0x00 0x00"; // of an unknown message, on standard output
using Console = RunningCamera;

// Waits until the log goes to the client.
void WaitUntilShown(const ProtocolClient& client, ProtocolClient& recorder)
{
    WaitUntil("the log at the console", [&] {
        recorder.Ask(kKeepaliveReq);
        return client.HasInput();
    });
}

TEST_F(Console, ShowsEverythingToOneClientAloneUntilItLeaves)
{
    ProtocolClient recorder;
    media->WaitForQueries(); // by now all of the server's threads run
    recorder.Ask(kKeepaliveReq);
    const size_t descriptors = server->CountEntries("fd");
    ProtocolClient first(kConsolePort);
    WaitUntilShown(first, recorder);
    ProtocolClient second(kConsolePort);
    const int logged = server->CountLog(kTrace);
    first.SendBytes("reboot\n"); // has no effect
    recorder.Send(9999);
    first.WaitForText(kTrace);
    first.WaitForText(kPrint);
    EXPECT_FALSE(second.HasInput());
    EXPECT_EQ(server->CountLog(kTrace), logged);

    first.Close();
    server->WaitForOutput(": Command disconnect\n"); // said where it was said before
    WaitUntilShown(second, recorder);
    second.Close();
    server->WaitForOutput(": Command disconnect\n", 2);
    const int before = server->CountLog(kTrace);
    recorder.Ask(kKeepaliveReq);
    EXPECT_EQ(server->CountLog(kTrace), before + 1);
    EXPECT_EQ(server->CountEntries("fd"), descriptors);
}

TEST_F(Console, OneThatTakesNothingStallsNobodyAndIsCutOff)
{
    using std::chrono::seconds;
    ProtocolClient noisy, recorder;
    const ProtocolClient stuck(kConsolePort, /* receiveBuffer= */ 4096);
    WaitUntilShown(stuck, recorder);
    const int logged = server->CountLog(kTrace);
    const auto begin = Clock::now();
    for (int i = 0; i < 250; i++) { // each shows 60 KiB: more in all than its socket may ever hold
        noisy.Send(9999, std::string(10000, 'x'));
        recorder.Ask(kKeepaliveReq);
    }
    while (server->CountLog(kTrace) == logged) {
        ASSERT_LT(Clock::now(), begin + Patience(seconds(120))) << "a stuck client is kept";
        recorder.Ask(kKeepaliveReq);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_GE(Clock::now() - begin, seconds(29));
    recorder.Send(9999);
    server->WaitForOutput(kPrint);
}

} // namespace
