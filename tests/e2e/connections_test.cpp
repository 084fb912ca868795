// The sixteen places for connections, who loses one, and that nothing is left of those who came and went.

#include "tests/e2e/harness/camera_test.h"

namespace {

constexpr auto kAccepted = "A stupid connect!ip = ";
constexpr auto kTableFull = "Connect over MAX_CONNECT_NUM";

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
    server->WaitForLog(kTableFull, 2); // once a second
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
    media->WaitForQueries(kQueryStart, kMainStream, 1); // by now all of the server's threads run
    media->WaitForQueries(kQueryStart, kSecondStream, 1);
    const size_t descriptors = server->CountDescriptors();
    const size_t threads = server->CountThreads();
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
    WaitUntil("descriptors to be closed", [&] { return server->CountDescriptors() == descriptors; });
    EXPECT_EQ(server->CountThreads(), threads);
}

// Time a silent connection has at least: 29 s go by on a clock of whole seconds. That it is over by then
// 3 s later cannot be told from a slow machine, so only the wait's own limit bounds it.
constexpr auto kIdleAtLeast = std::chrono::seconds(29);

class Idle : public RunningCamera {
  protected:
    // Lets others speak every 5 s, as long as that cannot meet the removal, and waits for the removal.
    template <typename Speak>
    void ExpectIdledOut(ProtocolClient& silent, Clock::time_point lastTraffic, Speak speak)
    {
        const auto deadline = Clock::now() + Patience(std::chrono::seconds(60));
        for (auto next = Clock::now(); !silent.HasInput();
             std::this_thread::sleep_for(std::chrono::milliseconds(50))) {
            ASSERT_LT(Clock::now(), deadline) << "an idle connection is kept";
            if (Clock::now() < next || Clock::now() - lastTraffic > std::chrono::seconds(27))
                continue;
            speak();
            next += std::chrono::seconds(5);
        }
        EXPECT_GE(Clock::now() - lastTraffic, kIdleAtLeast);
        silent.WaitUntilClosed();
    }
};

TEST_F(Idle, OneSilentUnloggedConnectionEndsAllThatHaveNotLoggedIn)
{
    ProtocolClient loggedIn;
    loggedIn.Login();
    const auto begin = Clock::now();
    ProtocolClient silent;
    ProtocolClient talking; // has no session either, and is not silent
    ExpectIdledOut(silent, begin, [&] {
        loggedIn.Ask(kKeepaliveReq);
        talking.Send(9999);
    });
    talking.WaitUntilClosed();
    EXPECT_EQ(server->CountLog("sessionid 0 go to hell"), 2);
    loggedIn.Ask(kKeepaliveReq);
}

TEST_F(Idle, ASilentMediaConnectionEndsItsSession)
{
    ProtocolClient other;
    other.Login();
    ProtocolClient command;
    command.Login();
    const auto begin = Clock::now();
    MediaReader reader(command.session, "Main");
    ExpectIdledOut(reader.client, begin, [&] {
        command.Ask(kKeepaliveReq);
        other.Ask(kKeepaliveReq);
    });
    command.WaitUntilClosed();
    EXPECT_EQ(server->CountLog("sessionid 2 go to hell"), 2);
    other.Ask(kKeepaliveReq);
}

TEST_F(Idle, WhateverIsSentOrReceivedKeepsASession)
{
    Watcher watcher;
    ProtocolClient unanswered;
    unanswered.Login();
    MediaReader noisy(/* session= */ 77, "Extra");
    const auto begin = Clock::now();
    ProtocolClient silent;
    silent.Login();
    int round = 0;
    ExpectIdledOut(silent, begin, [&] { // a keepalive every 20 s, the rest every 5 s
        if (round++ % 4 == 0)
            watcher.command.Ask(kKeepaliveReq);
        const auto gop = MakeGop();
        media->Publish(kMainStream, gop);
        ExpectFrames(watcher.media, gop);
        unanswered.Send(9999);
        noisy.client.SendBytes("noise");
    });
    watcher.command.Ask(kKeepaliveReq);
    unanswered.Ask(kKeepaliveReq);
    EXPECT_FALSE(watcher.media.client.HasInput() || noisy.client.HasInput());
}

TEST_F(Connections, WhatIsSentToAClaimedConnectionIsDropped)
{
    ProtocolClient command;
    MediaReader reader(command.Login(), "Main");
    for (const std::string& bytes : {reader.client.Request(kKeepaliveReq), reader.client.Request(9999, "x"),
                                     std::string(30000, '\xFF'), std::string("\xFF\1\0\0", 4)}) {
        reader.client.SendBytes(bytes);
        reader.client.WaitUntilRead();
    }
    command.Ask(kMonitorReq);
    const auto gop = MakeGop();
    media->Publish(kMainStream, gop);
    ExpectFrames(reader, gop); // are the first that arrive
    EXPECT_EQ(server->CountLog("cmd = 9999"), 0);
}

} // namespace
