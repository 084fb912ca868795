#include "hosts/media_host.h"

#include <cstring>
#include <map>

#include "media/ring_layout.h"
#include "tests/hosts/clip.h"
#include "tests/hosts/queue_client.h"

namespace {

constexpr key_t kMainRing = 0x61766C79;
constexpr key_t kPositions = 0x61766C79;
constexpr key_t kControl = 0x61766C8A;

// The clock of the records' time stamps.
uint32_t UptimeMs()
{
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<uint32_t>(now.tv_sec * 1000 + now.tv_nsec / 1000000);
}

// Reads the main stream's ring as a viewer does.
class Viewer {
  public:
    explicit Viewer(uint32_t place) : place_(place) {}
    ~Viewer() { shmdt(ring_); }
    Viewer(const Viewer&) = delete;
    Viewer& operator=(const Viewer&) = delete;

    // The next record; waits for it for as long as it takes. Places never get lost.
    DataInfo Next()
    {
        for (;;) {
            DataInfo header{};
            memcpy(&header, ring_ + place_, sizeof header);
            if (header.AVDataCheck != kRecordMagic)
                throw std::runtime_error("the place was lost at " + std::to_string(place_));
            if (header.EndFlag == kFlagFrame && header.AVDataLen < 0x400000) {
                place_ += kRecordBytes + static_cast<uint32_t>(header.AVDataLen);
                return header;
            }
            if (header.EndFlag == kFlagWrap || header.EndFlag == kFlagPause)
                place_ = 0;
            if (header.EndFlag == kFlagWrap)
                continue;
            usleep(1000);
            if (header.EndFlag == kFlagPause)
                return header;
        }
    }
    DataInfo NextVideo()
    {
        DataInfo header = Next();
        while (header.EndFlag == kFlagFrame && header.AVSource != kSourceVideo)
            header = Next();
        return header;
    }

  private:
    uint32_t place_;
    const uint8_t* const ring_ = AttachSegment(kMainRing);
};

class MediaHostTest : public testing::Test {
  protected:
    void StartHost()
    {
        Players players = {std::make_unique<StreamPlayer>("main", clip_.path(), 0xC0000, 200000),
                           std::make_unique<StreamPlayer>("second", clip_.path(), 0x40000, 200000)};
        host_ = std::make_unique<MediaHost>(std::move(players));
        host_->Start([this](size_t stream, const StreamFacts& facts) { facts_[stream] = facts; });
    }
    void TearDown() override
    {
        if (host_) {
            host_->Stop();
            host_->Release(true);
        }
        PurgeMediaObjects();
    }
    static uint32_t Ask(uint32_t command, uint32_t stream, uint32_t clientType = 10)
    {
        // The words that the host has nothing to say about come back as they were.
        SendWords(kPositions, 1, {clientType, command, stream, 0, 5, 6, 7, 8, 9, 10, 11});
        std::vector<uint32_t> reply = ReceiveWords(kPositions, clientType);
        EXPECT_EQ(reply.size(), 11U);
        const uint32_t place = reply[3];
        reply[3] = 0;
        EXPECT_EQ(reply, (std::vector<uint32_t>{clientType, command, stream, 0, 5, 6, 7, 8, 9, 10, 11}));
        return place;
    }

    const Clip clip_{50};
    std::map<size_t, StreamFacts> facts_;
    std::unique_ptr<MediaHost> host_;
};

TEST_F(MediaHostTest, PlaysVideoAndSoundIntoTheFirstTwoRings)
{
    StartHost();
    EXPECT_EQ(facts_[0].usWidth, 64);
    EXPECT_EQ(facts_[1].iFrameRate, 25);
    Viewer viewer(Ask(0x2001, 0));
    const DataInfo first = viewer.Next();
    EXPECT_EQ(first.AVSource, kSourceVideo);
    EXPECT_EQ(first.ucKeyFrame, 1);
    std::map<uint32_t, int> records;
    uint32_t serial = first.SerialNumber;
    for (int i = 0; i < 40; ++i) {
        const DataInfo header = viewer.Next();
        ASSERT_EQ(header.SerialNumber, ++serial);
        if (header.AVSource == kSourceAudio) {
            ASSERT_EQ(header.AVDataLen, 320);
        }
        ++records[header.AVSource];
    }
    EXPECT_NEAR(records[kSourceVideo], records[kSourceAudio], 2) << "25 a second of both";
}

TEST_F(MediaHostTest, StaysUnharmedByHostileRequests)
{
    StartHost();
    for (const uint32_t clientType : {0U, 1U, 17U, 0xFFFFFFFFU, 0x80000000U})
        SendWords(kPositions, 1, {clientType, 0x2001, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    SendWords(kPositions, 1, {});
    SendWords(kPositions, 1, {10, 0x2001, 0});
    SendWords(kPositions, 1, std::vector<uint32_t>(60, 10));
    for (const uint32_t stream : {2U, 4U, 0xFFFFFFFFU})
        EXPECT_EQ(Ask(0x2001, stream), 0U);
    EXPECT_EQ(Ask(0x9999, 0), 0U);
    EXPECT_LT(Ask(0x2002, 1, 2), 0x100000U);
    EXPECT_LT(Ask(0x2001, 0, 16), 0x400000U);
    EXPECT_EQ(MessagesInQueue(kPositions), 0U);
}

TEST_F(MediaHostTest, AnswersEveryOrderAndForcesKeyFrames)
{
    StartHost();
    const struct {
        uint32_t command, argument;
        int32_t result;
    } kOrders[] = {
        {0x2010, 0, 0}, {0x2010, 1, 0}, {0x2010, 2, -1}, {0x2010, UINT32_MAX, -1}, {0x1001, 0, -1}};
    for (const auto& order : kOrders) {
        SendWords(kControl, 1, {2, order.command, order.argument, 0, 0, 0, 0, 0});
        const std::vector<uint32_t> reply = ReceiveWords(kControl, 2);
        ASSERT_EQ(reply.size(), 8U);
        EXPECT_EQ(static_cast<int32_t>(reply[3]), order.result);
    }
    // The clip has a key frame every ten frames; asking after each third frame makes them come sooner.
    Viewer viewer(Ask(0x2001, 0));
    for (int i = 0; i < 5; ++i) {
        for (int frame = 0; frame < 3; ++frame)
            viewer.NextVideo();
        const uint32_t asked = UptimeMs();
        SendWords(kControl, 1, {2, 0x2010, 0, 0, 0, 0, 0, 0});
        ReceiveWords(kControl, 2);
        const uint32_t answered = UptimeMs();
        // Of the frames since the answer one may have been on its way, and one published in its millisecond.
        DataInfo next = viewer.NextVideo();
        for (int late = 0; next.TimeStamp < asked || (next.ucKeyFrame == 0 && late < 2);) {
            late += next.TimeStamp >= answered ? 1 : 0;
            next = viewer.NextVideo();
        }
        EXPECT_EQ(next.ucKeyFrame, 1) << "order " << i;
    }
}

TEST_F(MediaHostTest, PausesAndGoesOnWithAKeyFrameAtOffsetZero)
{
    StartHost();
    uint8_t* const ring = AttachSegment(kMainRing);
    Viewer viewer(Ask(0x2001, 0));
    for (int i = 0; i < 5; ++i) { // at several points between a frame and the sound beside it
        host_->SetPaused(true);
        while (viewer.Next().EndFlag != kFlagPause) {
        }
        EXPECT_EQ(ring[Ask(0x2001, 0) + 20], kFlagPause) << "who starts now finds the pause record";
        DataInfo mark{};
        mark.AVDataCheck = kRecordMagic;
        mark.EndFlag = kFlagPause;
        memcpy(ring, &mark, sizeof mark); // what readers do at a pause
        host_->SetPaused(false);
        DataInfo first = viewer.Next();
        while (first.EndFlag == kFlagPause)
            first = viewer.Next();
        EXPECT_EQ(first.AVSource, kSourceVideo);
        EXPECT_EQ(first.ucKeyFrame, 1);
    }
    shmdt(ring);
}

TEST_F(MediaHostTest, GivesReadersThatOutliveItHigherSerials)
{
    StartHost();
    uint32_t last = 0;
    {
        Viewer viewer(Ask(0x2001, 0));
        for (int i = 0; i < 20; ++i)
            last = viewer.Next().SerialNumber;
    }
    uint8_t* const reader = AttachSegment(kMainRing);
    host_->Stop();
    host_->Release(false);
    EXPECT_TRUE(SegmentExists(kMainRing)) << "a reader uses it";
    EXPECT_GE(msgget(kPositions, 0), 0);
    SendWords(kPositions, 10, std::vector<uint32_t>(11, 1)); // an answer that nobody fetched
    StartHost();
    EXPECT_GT(Viewer(Ask(0x2001, 0)).Next().SerialNumber, last);
    host_.reset(); // another host, which counted further
    DataInfo foreign{};
    foreign.AVDataCheck = kRecordMagic;
    foreign.SerialNumber = last = 0xF0000000;
    foreign.AVDataLen = 4;
    foreign.EndFlag = kFlagFrame;
    memcpy(reader, &foreign, sizeof foreign);
    StartHost();
    EXPECT_GT(Viewer(Ask(0x2001, 0)).Next().SerialNumber, last);
    EXPECT_EQ(MessagesInQueue(kPositions), 0U);
    shmdt(reader);
}

} // namespace
