#include "media/frame_source.h"

#include <sys/msg.h>

#include <thread>

#include "media/media_layout.h"
#include "media/stream_fanout.h"
#include "tests/media/fakes.h"

namespace {

constexpr int32_t kType = 10;

TEST(FrameSource, StartRefusesBadIndices)
{
    EXPECT_EQ(AVStreamStart(kType, 4), 102);
    EXPECT_EQ(AVStreamStart(1, 0), 102);
    EXPECT_EQ(AVStreamStart(17, 0), 102);
    EXPECT_EQ(GetAVStreamInit(17, nullptr, nullptr), 102);
}

// Answers every query with 64 until it gets one under client type 0.
void AnswerQueries(int queue)
{
    PositionMessage message{};
    while (msgrcv(queue, &message, PositionMessage::kTextBytes, 1, 0) == 44 && message.word[0] != 0) {
        message.type = static_cast<long>(message.word[kWordClientType]);
        message.word[kWordResult] = 64;
        EXPECT_EQ(msgsnd(queue, &message, PositionMessage::kTextBytes, 0), 0);
    }
}

// All readers, from set-up to their end: live frames reach the fan-out, and talk audio its ring's reader.
TEST_F(RunningFanOut, ReadersDeliverOnTheirThreads)
{
    g_watched = 1;
    gGetAVStreamSysInfo.queueId = -1;         // earlier tests removed theirs
    FakeClock clock;                          // of this thread alone
    TestRing second(kSecondStream, 0x100100); // exists already: adopted
    ASSERT_EQ(GetVoiceTalkAVStreamInit(9, nullptr, nullptr), 0);
    ASSERT_EQ(GetAVControlInit(), 0);
    const int queue = msgget(kPositionQueueKey, 0);
    std::thread host(AnswerQueries, queue);
    TestRing main(kMainStream), talk(kTalkAudio);
    EXPECT_EQ(IpcShareMemBytes(main.id), 0x400040U);
    EXPECT_EQ(IpcShareMemBytes(talk.id), 0x20040U);
    DataInfo header{};
    header.AVDataCheck = kRecordMagic;
    header.EndFlag = kFlagPause; // so that they wait, and do not ask again
    for (TestRing* ring : {&main, &second, &talk})
        ring->Put(129, header);
    header.AVDataLen = 1;
    header.AVSource = kSourceAudio;
    header.EndFlag = kFlagFrame;
    header.TimeStamp = 0xFFFFFFFF;
    main.Put(64, header, {11});
    second.Put(64, header, {21});
    talk.Put(64, header, {31});
    static std::atomic<int> talked{0};
    g_clients[9].frame = [](uint32_t source, uint32_t stream, const uint8_t* payload, const DataInfo*) {
        talked = static_cast<int>(source * 1000 + stream * 100 + payload[0]);
        return 0;
    };
    EXPECT_EQ(StartAVStream(kType), 0);
    for (int i = 0; i < 2; i++)
        EXPECT_EQ(AVStreamStart(9, kTalkAudio), 0); // once is enough
    EXPECT_EQ(clock.sleeps[500], 3);
    std::vector<uint8_t> frame(kMainFrameBytes);
    int32_t length = 0;
    uint32_t kind = 0;
    for (uint32_t stream = 0; stream < 2; stream++) {
        EXPECT_EQ(GetStreamFrame(stream, frame.data(), &length, &kind), 0);
        EXPECT_EQ(kind, kSourceAudio);
        EXPECT_EQ(frame[0], stream == 0 ? 11 : 21);
    }
    while (talked != 1000 + 300 + 31)
        std::this_thread::yield();
    // A reader that ends lets go of its segment: the test's own attachment remains.
    for (ClientState& client : g_clients)
        for (ReaderFlags& flags : client.reader)
            flags.isRunning = false;
    for (const TestRing* ring : {&main, &second, &talk})
        for (shmid_ds status{}; shmctl(ring->id, IPC_STAT, &status) == 0 && status.shm_nattch > 1;)
            std::this_thread::yield();
    const PositionMessage end{.type = 1, .word = {}};
    EXPECT_EQ(msgsnd(queue, &end, PositionMessage::kTextBytes, 0), 0);
    host.join();
    msgctl(queue, IPC_RMID, nullptr);
}

} // namespace
