#include "hosts/ring_writer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr uint32_t kRingBytes = 4096;

using Ring = std::vector<uint8_t>;

Ring MakeRing()
{
    // What an earlier lap or an earlier host left must never pass for a record.
    Ring ring(kRingBytes, 0xEE);
    DataInfo stale{};
    stale.AVDataCheck = kRecordMagic;
    stale.SerialNumber = 1;
    stale.AVDataLen = 10;
    stale.EndFlag = kFlagFrame;
    for (size_t at = 0; at + sizeof stale <= ring.size(); at += sizeof stale)
        memcpy(ring.data() + at, &stale, sizeof stale);
    return ring;
}

DataInfo HeaderAt(const Ring& ring, uint32_t place)
{
    DataInfo header{};
    memcpy(&header, ring.data() + place, sizeof header);
    return header;
}

// A reader by the rules of docs/ipc.md: one look at its place moves it on or tells what it sees there.
struct ModelReader {
    Ring& ring;
    uint32_t place;
    uint32_t lastSerial = 0;
    int wraps = 0;
    std::vector<std::string> frames{};

    enum Sight { kFrame, kUnfinished, kPaused, kLost };

    void WritePauseMark() const
    {
        DataInfo mark = HeaderAt(ring, place);
        mark.SerialNumber = 0;
        mark.AVDataLen = 0;
        memcpy(ring.data(), &mark, sizeof mark);
    }

    Sight Look()
    {
        if (place + kRecordBytes > kRingBytes)
            return kLost;
        const DataInfo header = HeaderAt(ring, place);
        if (header.AVDataCheck != kRecordMagic)
            return kLost;
        switch (header.EndFlag) {
        case kFlagWrap:
            ++wraps;
            place = 0;
            return Look();
        case kFlagPause:
            WritePauseMark();
            lastSerial = 0;
            place = 0;
            return kPaused;
        case kFlagFrame:
            break;
        default:
            return kUnfinished;
        }
        const auto length = static_cast<uint32_t>(header.AVDataLen);
        if ((lastSerial != 0 && header.SerialNumber != (lastSerial == UINT32_MAX ? 1 : lastSerial + 1)) ||
            place + kRecordBytes + length > kRingBytes)
            return kLost;
        const auto* const payload = reinterpret_cast<const char*>(ring.data() + place + kRecordBytes);
        frames.emplace_back(payload, length);
        lastSerial = header.SerialNumber;
        place += kRecordBytes + length;
        return kFrame;
    }
};

std::string Payload(size_t bytes, char fill)
{
    return std::string(bytes, fill);
}

bool Put(RingWriter& writer, const std::string& payload, bool keyFrame = false, uint32_t timeStamp = 7)
{
    return writer.Put({.payload = {reinterpret_cast<const uint8_t*>(payload.data()), payload.size()},
                       .source = kSourceVideo,
                       .keyFrame = keyFrame,
                       .ulTimeStamp = timeStamp});
}

TEST(RingWriter, WritesTheHeaderThatReadersExpect)
{
    Ring ring = MakeRing();
    RingWriter writer(ring.data(), kRingBytes, 0x01020304);
    ASSERT_TRUE(Put(writer, "abcde", /* keyFrame= */ true, /* timeStamp= */ 0x0A0B0C0D));
    const uint8_t expected[] = {0x78, 0x56, 0x34, 0x12, 4, 3,    2, 1, 5, 0,    0,    0,    0,    0, 0,
                                0,    0,    0,    0,    0, 0xFE, 0, 0, 0, 0x0D, 0x0C, 0x0B, 0x0A, 1, 0};
    EXPECT_EQ(memcmp(ring.data(), expected, sizeof expected), 0);
    EXPECT_EQ(memcmp(ring.data() + kRecordBytes, "abcde", 5), 0);
}

TEST(RingWriter, LeadsAReaderThroughManyLapsWithoutLosingItsPlace)
{
    Ring ring = MakeRing();
    RingWriter writer(ring.data(), kRingBytes, /* firstSerial= */ 0xFFFFFF00); // on the way past 0
    ModelReader reader{ring, writer.StartPlace()};
    std::mt19937 random(1); // seeded: the same sizes in every run
    std::vector<std::string> sent;
    for (int i = 0; i < 3000; ++i) {
        // The next place is announced: unfinished, whatever lay there in the last lap.
        ASSERT_EQ(reader.Look(), ModelReader::kUnfinished) << "before record " << i;
        const size_t bytes = 1 + random() % writer.MostPayload();
        sent.push_back(Payload(bytes, static_cast<char>('a' + i % 26)));
        ASSERT_TRUE(Put(writer, sent.back()));
        ASSERT_EQ(reader.Look(), ModelReader::kFrame) << "record " << i;
    }
    EXPECT_EQ(reader.frames, sent);
    EXPECT_GT(reader.wraps, 500);
}

TEST(RingWriter, MendsTheFirstRecordWhenALateReaderMarksThePauseOverIt)
{
    Ring ring = MakeRing();
    RingWriter writer(ring.data(), kRingBytes, 1);
    ASSERT_TRUE(Put(writer, Payload(1000, 'x')));
    writer.Pause();
    ModelReader late{ring, kRecordBytes + 1000};
    ASSERT_TRUE(Put(writer, "first"));
    ASSERT_EQ(late.Look(), ModelReader::kPaused); // marks offset 0
    ASSERT_TRUE(Put(writer, "second"));
    ASSERT_EQ(late.Look(), ModelReader::kFrame);
    ASSERT_EQ(late.Look(), ModelReader::kFrame);
    EXPECT_EQ(late.frames, (std::vector<std::string>{"first", "second"}));
}

TEST(RingWriter, StartsReadersAtTheNewestKeyFrameWhileTheRingHoldsIt)
{
    Ring ring = MakeRing();
    RingWriter writer(ring.data(), kRingBytes, 1);
    EXPECT_EQ(writer.StartPlace(), 0U);
    ASSERT_TRUE(Put(writer, Payload(100, 'i')));
    ASSERT_TRUE(Put(writer, Payload(100, 'K'), /* keyFrame= */ true));
    const uint32_t keyFrame = kRecordBytes + 100;
    std::vector<uint32_t> starts;
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(Put(writer, Payload(400, 'p')));
        starts.push_back(writer.StartPlace());
        ModelReader viewer{ring, starts.back()};
        while (viewer.Look() == ModelReader::kFrame) {
        }
        ASSERT_EQ(viewer.Look(), ModelReader::kUnfinished) << "after record " << i;
        if (starts.back() == keyFrame) {
            ASSERT_EQ(viewer.frames.front(), Payload(100, 'K')) << "after record " << i;
        }
    }
    EXPECT_EQ(starts.front(), keyFrame);
    EXPECT_NE(starts.back(), keyFrame) << "the last lap's key frame is gone";
}

} // namespace
