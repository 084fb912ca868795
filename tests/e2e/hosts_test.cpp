// The sibling processes come late, die and come back: the server waits, and goes on where they do.

#include <sys/msg.h>
#include <sys/shm.h>

#include "tests/e2e/harness/camera_test.h"

namespace {

using Hosts = Camera;

TEST_F(Hosts, WithoutAParameterHostThePortIsTheArguments)
{
    parameters.reset();
    StartServer({"-p", "9000", "-T", "16"});
    server->WaitForLog("g_port_server = 0\n");
    server->WaitForLog(": MsgAVType = 16 VideoIndex = 1\n");
    Watcher watcher;
    Deliver(watcher.media); // the encoder host's answers go to that type
    // The block is there for the host to come.
    EXPECT_EQ(IpcShareMemBytes(shmget(kSysConfigKey, 0, 0)), kSysConfigBytes);
}

TEST_F(Hosts, AnEncoderHostMayComeLaterThanTheServer)
{
    media.reset();
    StartServer();
    ProtocolClient client;
    EXPECT_EQ(client.Login(), 1U);
    WaitUntil("the server's query", [] {
        msqid_ds state{};
        return msgctl(msgget(kPositionQueueKey, 0), IPC_STAT, &state) == 0 && state.msg_qnum > 0;
    });
    media.emplace();
    Watcher watcher;
    Watcher extra("Extra");
    Deliver(watcher.media);
    Deliver(extra.media, MakeGop(), kSecondStream);
}

TEST_F(Hosts, AnEncoderHostMayDieAndComeBack)
{
    const struct {
        uint32_t firstSerial;
        bool insideAQuery;
    } rows[] = {{1'000'000, false}, {2'000'000, true}, {1, false}};
    StartServer();
    Watcher watcher;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.firstSerial);
        ASSERT_NO_FATAL_FAILURE(Deliver(watcher.media));
        if (row.insideAQuery) // the reader asks when nothing has come for 250 ms
            media->TakeQueryAndFallSilent();
        media.reset(); // queue and rings are gone
        WaitUntil("the server to miss it", [] { return msgget(kPositionQueueKey, 0) >= 0; });
        media.emplace(row.firstSerial);
        ASSERT_NO_FATAL_FAILURE(Deliver(watcher.media));
    }
}

} // namespace
