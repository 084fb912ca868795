// The sibling processes come late, die and come back: the server waits, and goes on where they do.

#include <sys/msg.h>
#include <sys/shm.h>

#include "tests/e2e/harness/camera_test.h"

namespace {

class Hosts : public Camera {
  protected:
    void ExpectLiveView(std::string_view stream)
    {
        Watcher watcher(stream);
        const auto gop = MakeGop();
        media->Publish(stream == "Main" ? kMainStream : kSecondStream, gop);
        ExpectFrames(watcher.media, gop);
    }
    static void WaitForQueryWithoutHost()
    {
        WaitUntil("the server's query", [] {
            msqid_ds state{};
            return msgctl(msgget(kPositionQueueKey, 0), IPC_STAT, &state) == 0 && state.msg_qnum > 0;
        });
    }
};

TEST_F(Hosts, WithoutAParameterHostThePortIsTheArguments)
{
    parameters.reset();
    StartServer({"-p", "9000", "-T", "16"});
    server->WaitForLog("g_port_server = 0\n");
    server->WaitForLog(": MsgAVType = 16 VideoIndex = 1\n");
    ExpectLiveView("Main"); // the host's answers go to that type
    // The block is there for the host to come.
    EXPECT_EQ(IpcShareMemBytes(shmget(kSysConfigKey, 0, 0)), kSysConfigBytes);
}

TEST_F(Hosts, AnEncoderHostMayComeLaterThanTheServer)
{
    media.reset();
    StartServer();
    ProtocolClient client;
    EXPECT_EQ(client.Login(), 1U);
    WaitForQueryWithoutHost();
    media.emplace();
    ExpectLiveView("Main");
    ExpectLiveView("Extra");
}

TEST_F(Hosts, AnEncoderHostMayDieAndComeBack)
{
    const struct {
        const char* name;
        bool insideAQuery;
        uint32_t firstSerial;
    } rows[] = {
        {"CountsOn", false, 1'000'000}, {"InsideAQuery", true, 2'000'000}, {"CountsFromOne", false, 1}};
    StartServer();
    Watcher watcher;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto gop = MakeGop();
        media->Publish(kMainStream, gop);
        ASSERT_NO_FATAL_FAILURE(ExpectFrames(watcher.media, gop));
        if (row.insideAQuery) { // the reader asks when nothing has come for 250 ms
            media->Script(kQueryKeyFrame, std::vector<Answer>(100));
            media->WaitForQueries(kQueryKeyFrame, kMainStream,
                                  media->CountQueries(kQueryKeyFrame, kMainStream) + 1);
        }
        media.reset(); // queue and rings are gone
        WaitUntil("the server to miss it", [] { return msgget(kPositionQueueKey, 0) >= 0; });
        media.emplace(row.firstSerial);
        gop = MakeGop();
        media->Publish(kMainStream, gop);
        ASSERT_NO_FATAL_FAILURE(ExpectFrames(watcher.media, gop));
    }
}

TEST_F(Hosts, ASegmentSmallerThanItsRingIsRefused)
{
    media.reset();
    const int small = shmget(kRings[kMainStream].key, 8192, IPC_CREAT | kRingMode);
    ASSERT_GE(small, 0);
    StartServer();
    WaitForQueryWithoutHost(); // of the extra stream
    EXPECT_GE(server->CountLog("8192"), 1) << "no log line says why";
    shmctl(small, IPC_RMID, nullptr);
    media.emplace();
    ExpectLiveView("Extra");
}

} // namespace
