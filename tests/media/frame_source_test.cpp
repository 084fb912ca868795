#include "media/frame_source.h"

#include <gtest/gtest.h>
#include <sys/msg.h>
#include <sys/shm.h>

#include <future>
#include <thread>

#include "media/frame_source_state.h"
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

class FrameSource : public testing::Test {
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

std::promise<uint32_t>* g_firstFrame = nullptr;
std::promise<uint32_t>* g_talkFrame = nullptr;

int Announce(uint32_t source, uint32_t stream, const uint8_t* payload, const DataInfo* header)
{
    (stream == kTalkAudio ? g_talkFrame : g_firstFrame)
        ->set_value(source + stream + payload[0] + header->SerialNumber);
    return 0;
}

TEST_F(FrameSource, ReadersDeliverOnTheirThreadsUntilStopped)
{
    std::promise<uint32_t> first, talk;
    g_firstFrame = &first;
    g_talkFrame = &talk;
    ASSERT_EQ(GetAVControlInit(), 0);
    ASSERT_EQ(GetAVControlVoiceTalkInit(), 0);
    DataInfo header{};
    header.AVDataCheck = kRecordMagic;
    header.SerialNumber = 100;
    header.AVDataLen = 4;
    header.EndFlag = kFlagFrame;
    header.TimeStamp = 0xFFFFFFFF;
    {
        TestRing ring(kSecondStream), talkRing(kTalkAudio);
        ring.Put(64, header, {5, 6, 7, 8});
        talkRing.Put(64, header, {5, 6, 7, 8});
        g_clients[kType].frame = Announce;
        g_clients[kType].status = nullptr;
        std::thread host([] {
            const int queue = msgget(kPositionQueueKey, 0);
            for (int i = 0; i < 2; i++) {
                PositionMessage message{};
                ASSERT_EQ(msgrcv(queue, &message, PositionMessage::kTextBytes, 1, 0), 44);
                message.type = kType;
                message.word[kWordResult] = 64;
                ASSERT_EQ(msgsnd(queue, &message, PositionMessage::kTextBytes, 0), 0);
            }
        });
        FakeClock clock; // of this thread alone
        EXPECT_EQ(AVStreamStart(kType, kSecondStream), 0);
        EXPECT_EQ(AVStreamStart(kType, kSecondStream), 0); // is started already
        EXPECT_EQ(AVStreamStart(kType, kTalkAudio), 0);
        EXPECT_EQ(clock.sleepsMs, (std::vector<uint32_t>{500, 500}));
        host.join();
        EXPECT_EQ(first.get_future().get(), 1U + 5 + 100);
        EXPECT_EQ(talk.get_future().get(), 3U + 5 + 100);
        EXPECT_EQ(AVStreamStop(kType, kSecondStream), 0);
        EXPECT_EQ(AVStreamStop(kType, kTalkAudio), 0);
        // A reader that ends lets go of its segment: the test's own attachment remains.
        for (const TestRing* own : {&ring, &talkRing}) {
            shmid_ds status{};
            do {
                ASSERT_EQ(shmctl(own->id(), IPC_STAT, &status), 0);
                std::this_thread::yield();
            } while (status.shm_nattch > 1);
        }
    }
    g_clients[kType].frame = nullptr;
}

} // namespace
