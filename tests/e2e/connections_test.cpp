// Who loses his connection for his silence.

#include "tests/e2e/harness/camera_test.h"

namespace {

using Connections = RunningCamera;

TEST_F(Connections, OneThatIsSilentForThirtySecondsEndsItsSession)
{
    using std::chrono::seconds;
    Watcher watcher;
    ProtocolClient command;
    command.Login();
    MediaReader noisy(/* session= */ 77, "Extra2");
    ProtocolClient talking; // has not logged in, like the silent one: one session
    const auto begin = Clock::now();
    ProtocolClient silent;
    MediaReader silentMedia(command.session, "Extra");
    // The others speak every 5 s, as long as that cannot meet the removal.
    for (auto next = begin; !silent.HasInput() && !silentMedia.client.HasInput();
         std::this_thread::sleep_for(std::chrono::milliseconds(50))) {
        ASSERT_LT(Clock::now(), begin + Patience(seconds(60))) << "an idle connection is kept";
        if (Clock::now() < next || Clock::now() > begin + seconds(27))
            continue;
        next += seconds(5);
        Deliver(watcher.media);
        watcher.command.Ask(kKeepaliveReq);
        command.Ask(kKeepaliveReq);
        talking.Send(9999); // is not answered
        noisy.client.SendBytes("noise");
    }
    // Thirty on a clock of whole seconds. That it is over by then 3 s later cannot be told from a slow
    // machine, so only the wait's own limit bounds it.
    EXPECT_GE(Clock::now() - begin, seconds(29));
    for (ProtocolClient* client : {&silent, &talking, &silentMedia.client, &command})
        client->WaitUntilClosed();
    for (const char* session : {"sessionid 0", "sessionid 2"})
        EXPECT_EQ(server->CountLog(session + std::string(" go to hell")), 2);
    watcher.command.Ask(kKeepaliveReq);
    EXPECT_FALSE(watcher.media.client.HasInput() || noisy.client.HasInput());
}

} // namespace
