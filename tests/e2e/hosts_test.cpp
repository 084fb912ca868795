// The sibling processes come late: the server waits for them.

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

} // namespace
