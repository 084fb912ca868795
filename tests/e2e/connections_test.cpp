// The sixteen places for connections, who loses one, and that nothing is left of those who came and went.

#include "tests/e2e/harness/camera_test.h"

namespace {

constexpr auto kAccepted = "A stupid connect!ip = ";

using Connections = RunningCamera;

TEST_F(Connections, TheSeventeenthIsAcceptedWhenAPlaceIsFree)
{
    std::vector<ProtocolClient> clients;
    for (int i = 0; i < 16; i++) {
        clients.emplace_back();
        server->WaitForLog(kAccepted, i + 1);
    }
    ProtocolClient late;
    late.Send(kKeepaliveReq);
    server->WaitForLog("Connect over MAX_CONNECT_NUM", 2); // once a second
    EXPECT_EQ(server->CountLog(kAccepted), 16);
    EXPECT_FALSE(late.HasInput());
    for (ProtocolClient& client : clients)
        EXPECT_NE(client.Login(), 0U);

    clients[4].Close();
    late.ReceiveReply(kKeepaliveReply);
    server->WaitForLog(": Remove 4 fd "); // its place, the lowest free one, is the late one's
    late.Close();
    server->WaitForLog(": Remove 4 fd ", 2);
}

TEST_F(Connections, NothingIsLeftOfThoseWhoCameAndWent)
{
    ProtocolClient stays;
    stays.Login();
    media->WaitForQueries(); // by now all of the server's threads run
    const size_t descriptors = server->CountEntries("fd");
    const size_t threads = server->CountEntries("task");
    for (int round = 0; round < 20; round++) {
        std::vector<ProtocolClient> clients(10);
        for (size_t i = 0; i < clients.size(); i++) {
            clients[i].Login();
            if (i % 3 == 1)
                clients[i].SendBytes(clients[i].Request(kLoginReq, "part", 100)); // the rest never comes
            if (i % 2 == 1)
                clients[i].Abort();
        }
        clients.clear();
        server->WaitForLog("Command disconnect", 10 * (round + 1));
    }
    stays.Ask(kKeepaliveReq);
    WaitUntil("descriptors to be closed", [&] { return server->CountEntries("fd") == descriptors; });
    EXPECT_EQ(server->CountEntries("task"), threads);
}

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
