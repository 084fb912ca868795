#include "hosts/media_host.h"

#include <cstring>
#include <ctime>

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

class MediaHostTest : public testing::Test {
  protected:
    MediaHostTest()
    {
        host_.Start([](size_t, const StreamFacts& facts) { EXPECT_EQ(facts.usWidth, 64); });
        ring_ = AttachSegment(kMainRing);
        place_ = Ask(kPositions, 10, 0x2001, 0);
    }
    ~MediaHostTest() override
    {
        shmdt(ring_);
        host_.Stop();
        PurgeMediaObjects();
    }
    // Asks for a position or gives an order. What the host has nothing to say about comes back as it was.
    static uint32_t Ask(key_t queue, uint32_t answerType, uint32_t command, uint32_t argument)
    {
        std::vector<uint32_t> words = {answerType, command, argument, 0, 5, 6, 7, 8, 9, 10, 11};
        words.resize(queue == kControl ? 8 : 11);
        SendWords(queue, 1, words);
        const std::vector<uint32_t> reply = ReceiveWords(queue, answerType);
        words[3] = reply.at(3);
        EXPECT_EQ(reply, words);
        return words[3];
    }
    // The next record of the main stream, as a viewer gets it that never loses its place. Waits for it.
    DataInfo Next()
    {
        for (;; usleep(1000)) {
            DataInfo header{};
            memcpy(&header, ring_ + place_, sizeof header);
            if (header.AVDataCheck != kRecordMagic)
                throw std::runtime_error("the place was lost at " + std::to_string(place_));
            const bool isFrame = header.EndFlag == kFlagFrame && header.AVDataLen < 0x400000;
            if (isFrame)
                place_ += kRecordBytes + static_cast<uint32_t>(header.AVDataLen);
            if (header.EndFlag == kFlagWrap)
                place_ = 0;
            if (isFrame)
                return header;
        }
    }

    const Clip clip_{50};
    MediaHost host_{{std::make_unique<StreamPlayer>("main", clip_.path(), 0xC0000, 200000),
                     std::make_unique<StreamPlayer>("second", clip_.path(), 0x40000, 200000)}};
    uint8_t* ring_ = nullptr; // as a reader has it attached
    uint32_t place_ = 0;
};

TEST_F(MediaHostTest, PlaysVideoAndSoundAndAnswersInSpiteOfHostileRequests)
{
    for (const uint32_t clientType : {0U, 1U, 17U, 0xFFFFFFFFU, 0x80000000U})
        SendWords(kPositions, 1, {clientType, 0x2001, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    for (const size_t words : {0U, 3U, 60U})
        SendWords(kPositions, 1, std::vector<uint32_t>(words, 10));
    for (const uint32_t stream : {2U, 4U, 0xFFFFFFFFU})
        EXPECT_EQ(Ask(kPositions, 10, 0x2001, stream), 0U);
    EXPECT_EQ(Ask(kPositions, 10, 0x9999, 0), 0U);
    EXPECT_LT(Ask(kPositions, 2, 0x2002, 1), 0x100000U);
    EXPECT_LT(Ask(kPositions, 16, 0x2001, 0), 0x400000U);
    EXPECT_EQ(MessagesInQueue(kPositions), 0U);
    const DataInfo first = Next();
    EXPECT_EQ(first.AVSource, kSourceVideo);
    EXPECT_EQ(first.ucKeyFrame, 1);
    int surplus = 0; // of video
    for (uint32_t i = 1; i <= 40; ++i) {
        const DataInfo header = Next();
        ASSERT_EQ(header.SerialNumber, first.SerialNumber + i);
        ASSERT_TRUE(header.AVSource == kSourceVideo || header.AVDataLen == 320);
        surplus += header.AVSource == kSourceVideo ? 1 : -1;
    }
    EXPECT_NEAR(surplus, 0, 2) << "25 a second of both";
}

TEST_F(MediaHostTest, AnswersEveryOrderAndForcesKeyFrames)
{
    EXPECT_EQ(Ask(kControl, 2, 0x2010, 1), 0U);
    EXPECT_EQ(Ask(kControl, 2, 0x2010, 2), UINT32_MAX);
    EXPECT_EQ(Ask(kControl, 2, 0x2010, UINT32_MAX), UINT32_MAX);
    EXPECT_EQ(Ask(kControl, 2, 0x1001, 0), UINT32_MAX);
    // The clip has a key frame every ten frames; asking after each third frame makes them come sooner.
    for (int i = 0; i < 5; ++i) {
        for (int record = 0; record < 6; ++record)
            Next();
        const uint32_t asked = UptimeMs();
        EXPECT_EQ(Ask(kControl, 2, 0x2010, 0), 0U);
        const uint32_t answered = UptimeMs();
        int late = 0;
        DataInfo next = Next();
        for (; next.TimeStamp < asked || next.ucKeyFrame == 0; next = Next())
            late += next.AVSource == kSourceVideo && next.TimeStamp >= answered ? 1 : 0;
        EXPECT_LE(late, 2) << "one may have been on its way, and one published in the answer's millisecond";
    }
}

} // namespace
