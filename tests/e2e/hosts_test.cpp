// The sibling processes come late, die and come back: the server waits, and goes on where they do.

#include <sys/msg.h>
#include <sys/shm.h>

#include "tests/e2e/harness/camera_test.h"

namespace {

class Hosts : public Camera {
  protected:
    void ExpectLiveView(std::string_view stream = "Main")
    {
        Watcher watcher(stream);
        const auto gop = MakeGop();
        media->Publish(stream == "Main" ? kMainStream : kSecondStream, gop);
        ExpectFrames(watcher.media, gop);
    }
};

size_t MessagesIn(int queue)
{
    msqid_ds state{};
    return msgctl(queue, IPC_STAT, &state) == 0 ? state.msg_qnum : 0;
}

TEST_F(Hosts, WithoutAParameterHostThePortIsTheArguments)
{
    parameters.reset();
    server.emplace(std::vector<std::string>{"-p", "9000"});
    server->WaitForLog("VelmoraGetServerPort");
    server->WaitForLog("g_port_server = 0\n");
    server->WaitForLog("ListenSocketThread");
    ProtocolClient client(9000);
    EXPECT_EQ(client.Login(), 1U);
    // The block is there for the host to come, and empty.
    const int id = shmget(kSysConfigKey, 0, 0);
    EXPECT_EQ(IpcShareMemBytes(id), kSysConfigBytes);
    const ShmAttachment block(id);
    const std::string_view bytes(reinterpret_cast<const char*>(block.get()), kSysConfigBytes);
    EXPECT_EQ(bytes.find_first_not_of('\0'), bytes.npos);
}

TEST_F(Hosts, WithoutAPortThereIsNoListener)
{
    parameters->Set<uint16_t>(block::kVelmoraPort, 0);
    server.emplace();
    server->WaitForLog("VideoPos = "); // the stream readers run, which start last
    EXPECT_THROW(ProtocolClient{}, std::runtime_error);
    EXPECT_EQ(server->CountLog("create tcp connect success"), 0);
    EXPECT_GE(media->CountQueries(kQueryStart, kMainStream), 1);
}

TEST_F(Hosts, AnswersToAnEarlierLifeAreDrained)
{
    PositionMessage position{};
    position.type = 10; // the server's client type
    position.word[kWordClientType] = 10;
    position.word[kWordCommand] = kQueryStart;
    position.word[kWordResult] = 0x3000;
    ParameterMessage parameter{};
    parameter.lType = 7; // its process id
    for (int i = 0; i < 5; i++) {
        ASSERT_EQ(msgsnd(media->queue(), &position, PositionMessage::kTextBytes, 0), 0);
        ASSERT_EQ(msgsnd(parameters->queue(), &parameter, kParameterTextBytes, 0), 0);
    }
    StartServer();
    media->WaitForQueries(kQueryStart, kMainStream, 1);
    media->WaitForQueries(kQueryStart, kSecondStream, 1);
    WaitUntil("empty queues",
              [&] { return MessagesIn(media->queue()) + MessagesIn(parameters->queue()) == 0; });
    ExpectLiveView();
}

TEST_F(Hosts, TheClientTypeIsTheArguments)
{
    StartServer({"-T", "16"});
    server->WaitForLog(": MsgAVType = 16 VideoIndex = 1\n");
    ExpectLiveView(); // the answers go to that type
}

TEST_F(Hosts, WithAClientTypeThatDoesNotExistNothingIsRead)
{
    for (const char* type : {"1", "17", "-1", "2147483647", "-2147483648", "99999999999999999999", "ten"}) {
        SCOPED_TRACE(type);
        StartServer({"-t", type});
        server->WaitForLog("StartAVStream", 2);
        ProtocolClient client;
        EXPECT_EQ(client.Login(), 1U);
        EXPECT_EQ(media->CountQueries(kQueryStart, kMainStream), 0);
        server->ExpectHealthy();
        server.reset();
    }
}

TEST_F(Hosts, TheReaderFindsItsStartWhateverIsAnswered)
{
    const struct {
        const char* name;
        int queries; // it takes at least
        std::vector<Answer> answers;
    } rows[] = {
        {"OutsideTheRing", 4, {{.position = 0xFFFFFFFF}, {.position = 0x80000000}, {.position = 0x400001}}},
        {"AtItsEnd", 2, {{.position = 0x400000}}},
        {"InTheLastBytesOfTheSegment", 1, {{.position = 0x3FFFFF}}},
        {"NoRecord", 1, {{.position = 1}}},
        {"WithoutNamingTheQuery", 1, std::vector<Answer>(1000, {.withoutNaming = true})},
        {"NotAtAll", 3, {{.silent = true}, {.silent = true}}}, // the query died with its host
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        media.reset();
        media.emplace();
        media->Script(kQueryStart, row.answers);
        StartServer();
        media->WaitForQueries(kQueryStart, kMainStream, row.queries);
        ExpectLiveView();
        server->ExpectHealthy();
        server.reset();
    }
}

TEST_F(Hosts, AnEncoderHostMayComeLaterThanTheServer)
{
    media.reset();
    StartServer();
    ProtocolClient client;
    EXPECT_EQ(client.Login(), 1U);
    WaitUntil("the server's query", [] { return MessagesIn(msgget(kPositionQueueKey, 0)) > 0; });
    media.emplace();
    ExpectLiveView();
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
            media->Script(kQueryKeyFrame, std::vector<Answer>(100, {.silent = true}));
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
    ProtocolClient client;
    EXPECT_EQ(client.Login(), 1U);
    WaitUntil("the extra stream's query", [] { return MessagesIn(msgget(kPositionQueueKey, 0)) > 0; });
    EXPECT_NE(server->Log().find("8192"), std::string::npos) << "no log line says why"; // its bytes
    shmctl(small, IPC_RMID, nullptr);
    media.emplace();
    ExpectLiveView("Extra");
}

} // namespace
