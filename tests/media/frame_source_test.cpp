#include "media/frame_source.h"

#include <thread>

#include "common/clock.h"
#include "media/media_layout.h"
#include "media/position_query.h"
#include "tests/media/fakes.h"

namespace {

TEST(FrameSource, RefusesClientsAndStreamsThatThereAreNot)
{
    PositionMessage message{};
    for (const auto& [type, index] :
         {std::pair(10, 4U), {10, ~0U}, {1, 0U}, {17, 0U}, {-1, 0U}, {256 + 10, 0U}}) {
        EXPECT_EQ(AVStreamStart(type, index), 102);
        EXPECT_EQ(AVStreamQuery(type, index, kQueryStart, &message), 102);
    }
    EXPECT_EQ(AVStreamQuery(10, 0, kQueryStart, nullptr), 106);
    EXPECT_EQ(GetAVStreamInit(17, nullptr, nullptr), 102);
}

// The talk reader from set-up to its end; the live streams' do the same.
TEST(FrameSource, ReaderDeliversOnItsThread)
{
    gGetAVStreamSysInfo.queueId = -1; // earlier tests removed theirs
    FakeClock clock;                  // of this thread alone
    ASSERT_EQ(GetVoiceTalkAVStreamInit(9, nullptr, nullptr), 0);
    const QueueEnd host(kPositionQueueKey);
    TestRing talk(kTalkAudio);
    EXPECT_EQ(IpcShareMemBytes(talk.id), 0x20040U);
    DataInfo header{};
    header.AVDataCheck = kRecordMagic;
    header.EndFlag = kFlagPause; // so that it waits, and does not ask again
    talk.Put(129, header);
    header.AVDataLen = 1;
    header.AVSource = kSourceAudio;
    header.EndFlag = kFlagFrame;
    header.TimeStamp = GetUptime() * 1000 + 1000000000; // later, however slow this is
    talk.Put(64, header, {31});
    static std::atomic<int> talked{0};
    g_clients[9].frame = [](uint32_t source, uint32_t stream, const uint8_t* payload, const DataInfo*) {
        talked = static_cast<int>(source * 1000 + stream * 100 + payload[0]);
        return 0;
    };
    for (int i = 0; i < 2; i++)
        EXPECT_EQ(AVStreamStart(9, kTalkAudio), 0); // once is enough
    EXPECT_EQ(clock.sleeps[500], 1);
    while (host.Take().empty())
        std::this_thread::yield();
    host.Send(9, {9, kQueryStart, kTalkAudio, 64}, 44);
    while (talked != 1000 + 300 + 31)
        std::this_thread::yield();
    // A reader that ends lets go of its segment: the test's own attachment remains.
    g_clients[9].reader[kTalkAudio].isRunning = false;
    for (shmid_ds status{}; shmctl(talk.id, IPC_STAT, &status) == 0 && status.shm_nattch > 1;)
        std::this_thread::yield();
}

} // namespace
