#include "media/frame_source.h"

#include <gtest/gtest.h>
#include <sys/msg.h>
#include <sys/shm.h>

#include <future>
#include <thread>

#include "media/frame_source_state.h"
#include "media/media_layout.h"
#include "media/stream_fanout.h"
#include "tests/media/fakes.h"

namespace {

constexpr int32_t kType = 9;

void RemoveIpc()
{
    for (const RingShape& ring : kRings)
        shmctl(shmget(ring.key, 0, 0), IPC_RMID, nullptr);
    msgctl(msgget(kPositionQueueKey, 0), IPC_RMID, nullptr);
    gGetAVStreamSysInfo.initFlag = 0;
    gGetAVStreamSysInfo.queueId = -1;
}

class FrameSource : public RunningFanOut {
  protected:
    FrameSource() { RemoveIpc(); }
    ~FrameSource() override { RemoveIpc(); }
};

size_t SegmentBytes(uint32_t index)
{
    return IpcShareMemBytes(shmget(kRings[index].key, 0, 0));
}

TEST_F(FrameSource, SetUpCreatesTheLiveRingsAndTheQueueOnce)
{
    FakeLog log;
    EXPECT_EQ(GetAVControlInit(), 0);
    EXPECT_EQ(SegmentBytes(0), 0x400040U);
    EXPECT_EQ(SegmentBytes(1), 0x100040U);
    EXPECT_EQ(SegmentBytes(2), 0x100040U);
    EXPECT_EQ(SegmentBytes(3), 0U);
    EXPECT_GE(msgget(0x61766C79, 0), 0);
    EXPECT_EQ(log.lines.size(), 3U);
    EXPECT_EQ(GetAVControlInit(), 0);
    EXPECT_EQ(log.lines.size(), 3U);
    EXPECT_EQ(GetAVControlVoiceTalkInit(), 0);
    EXPECT_EQ(SegmentBytes(3), 0x20040U);
}

TEST_F(FrameSource, AdoptsASmallerSegmentAndLeavesItToTheReader)
{
    TestRing small(kSecondStream, 4096);
    EXPECT_EQ(GetAVControlInit(), 0);
    EXPECT_EQ(gGetAVStreamSysInfo.StreamSharememID[kSecondStream], small.id());
}

int CountFrames(uint32_t, uint32_t, const uint8_t*, const DataInfo*)
{
    return 0;
}

TEST_F(FrameSource, FirstClientSetsUpAndThrowsOldAnswersAway)
{
    const int queue = msgget(kPositionQueueKey, IPC_CREAT | 0600);
    for (const long type : {kType, kType, kType + 1}) {
        const PositionMessage stale{.type = type, .word = {}};
        ASSERT_EQ(msgsnd(queue, &stale, PositionMessage::kTextBytes, 0), 0);
    }
    EXPECT_EQ(GetAVStreamInit(17, CountFrames, nullptr), 102);
    EXPECT_EQ(GetAVStreamInit(kType, CountFrames, nullptr), 0);
    EXPECT_EQ(g_clients[kType].frame, CountFrames);
    msqid_ds status{};
    ASSERT_EQ(msgctl(queue, IPC_STAT, &status), 0);
    EXPECT_EQ(status.msg_qnum, 1U); // another client's
    EXPECT_EQ(GetVoiceTalkAVStreamInit(kType, nullptr, nullptr), 0);
    EXPECT_EQ(SegmentBytes(3), 0x20040U);
    EXPECT_EQ(g_clients[kType].frame, nullptr);
}

TEST_F(FrameSource, StartRefusesBadIndices)
{
    EXPECT_EQ(AVStreamStart(kType, 4), 102);
    EXPECT_EQ(AVStreamStart(1, 0), 102);
    EXPECT_EQ(AVStreamStart(17, 0), 102);
    EXPECT_EQ(AVStreamStop(kType, 4), 102);
}

// Answers so many queries with 64.
void AnswerQueries(int count)
{
    const int queue = msgget(kPositionQueueKey, 0);
    for (int i = 0; i < count; i++) {
        PositionMessage message{};
        ASSERT_EQ(msgrcv(queue, &message, PositionMessage::kTextBytes, 1, 0), 44);
        message.type = static_cast<long>(message.word[kWordClientType]);
        message.word[kWordResult] = 64;
        ASSERT_EQ(msgsnd(queue, &message, PositionMessage::kTextBytes, 0), 0);
    }
}

DataInfo Record(int32_t length, uint32_t flag = kFlagFrame)
{
    DataInfo header{};
    header.AVDataCheck = kRecordMagic;
    header.SerialNumber = 100;
    header.AVDataLen = length;
    header.AVSource = kSourceAudio;
    header.EndFlag = flag;
    header.TimeStamp = 0xFFFFFFFF;
    return header;
}

// A reader that ends lets go of its segment: the test's own attachment remains.
void StopAndAwait(int32_t clientType, uint32_t index, const TestRing& ring)
{
    EXPECT_EQ(AVStreamStop(clientType, index), 0);
    shmid_ds status{};
    do {
        ASSERT_EQ(shmctl(ring.id(), IPC_STAT, &status), 0);
        std::this_thread::yield();
    } while (status.shm_nattch > 1);
}

std::promise<uint32_t> g_talkFrame;

int Announce(uint32_t source, uint32_t stream, const uint8_t* payload, const DataInfo* header)
{
    g_talkFrame.set_value(source * 1000 + stream * 100 + payload[0] + header->SerialNumber);
    return 0;
}

TEST_F(FrameSource, TalkReaderDeliversOnItsThreadUntilStopped)
{
    ASSERT_EQ(GetAVControlVoiceTalkInit(), 0);
    TestRing ring(kTalkAudio);
    ring.Put(64, Record(4), {5, 6, 7, 8});
    g_clients[kType].frame = Announce;
    std::thread host(AnswerQueries, 1);
    FakeClock clock; // of this thread alone
    EXPECT_EQ(AVStreamStart(kType, kTalkAudio), 0);
    EXPECT_EQ(AVStreamStart(kType, kTalkAudio), 0); // is started already
    EXPECT_EQ(clock.sleepsMs, std::vector<uint32_t>{500});
    host.join();
    EXPECT_EQ(g_talkFrame.get_future().get(), 1000U + 300 + 5 + 100);
    StopAndAwait(kType, kTalkAudio, ring);
    g_clients[kType].frame = nullptr;
}

TEST_F(FrameSource, ServersReadersFeedTheFanOut)
{
    constexpr int32_t kServerType = 10;
    ASSERT_EQ(GetAVControlInit(), 0);
    TestRing main(kMainStream), second(kSecondStream);
    main.Put(64, Record(1), {11});
    second.Put(64, Record(2), {21, 22});
    main.Put(129, Record(0, kFlagPause)); // so that they wait, and do not ask again
    second.Put(130, Record(0, kFlagPause));
    FakeWatch watch(true);
    std::thread host(AnswerQueries, 2);
    FakeClock clock;
    EXPECT_EQ(StartAVStream(kServerType), 0);
    host.join();
    std::vector<uint8_t> frame(kMainFrameBytes);
    int32_t length = 0;
    uint32_t kind = 0;
    for (int32_t stream = 0; stream < 2; stream++) {
        EXPECT_EQ(GetStreamFrame(static_cast<uint32_t>(stream), frame.data(), &length, &kind), 0);
        EXPECT_EQ(length, stream + 1);
        EXPECT_EQ(kind, kSourceAudio);
        EXPECT_EQ(frame[0], 10 * stream + 11);
    }
    StopAndAwait(kServerType, kMainStream, main);
    StopAndAwait(kServerType, kSecondStream, second);
}

} // namespace
