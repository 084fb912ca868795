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
    const DataInfo stale{kRecordMagic, 1, 10, 0, kSourceVideo, kFlagFrame, 0, 0, {}};
    Ring ring(kRingBytes);
    for (size_t at = 0; at + sizeof stale <= ring.size(); at += sizeof stale)
        memcpy(ring.data() + at, &stale, sizeof stale);
    return ring;
}

// A reader by the rules of docs/ipc.md: one look at its place moves it on or tells what it sees there.
struct ModelReader {
    Ring& ring;
    uint32_t place;
    uint32_t lastSerial = 0;
    std::vector<std::string> frames{};

    enum Sight { kFrame, kUnfinished, kPaused, kLost };

    Sight Look()
    {
        DataInfo header{};
        if (place + kRecordBytes > kRingBytes)
            return kLost;
        memcpy(&header, ring.data() + place, sizeof header);
        if (header.AVDataCheck != kRecordMagic)
            return kLost;
        if (header.EndFlag == kFlagFrame)
            return Take(header);
        if (header.EndFlag != kFlagWrap && header.EndFlag != kFlagPause)
            return kUnfinished;
        place = 0;
        if (header.EndFlag == kFlagWrap)
            return Look();
        header.SerialNumber = lastSerial = 0;
        header.AVDataLen = 0;
        memcpy(ring.data(), &header, sizeof header); // the mark that readers leave at a pause
        return kPaused;
    }
    Sight Take(const DataInfo& header)
    {
        const auto length = static_cast<uint32_t>(header.AVDataLen);
        const uint32_t due = lastSerial == UINT32_MAX ? 1 : lastSerial + 1;
        if ((lastSerial != 0 && header.SerialNumber != due) || place + kRecordBytes + length > kRingBytes)
            return kLost;
        frames.emplace_back(reinterpret_cast<const char*>(ring.data() + place + kRecordBytes), length);
        lastSerial = header.SerialNumber;
        place += kRecordBytes + length;
        return kFrame;
    }
};

bool Put(RingWriter& writer, const std::string& payload, bool keyFrame = false)
{
    return writer.Put({.payload = {reinterpret_cast<const uint8_t*>(payload.data()), payload.size()},
                       .source = kSourceVideo,
                       .keyFrame = keyFrame,
                       .ulTimeStamp = 0x0A0B0C0D});
}

TEST(RingWriter, LeadsReadersThroughManyLapsWithoutLosingTheirPlace)
{
    Ring ring = MakeRing();
    RingWriter writer(ring.data(), kRingBytes, /* firstSerial= */ 0xFFFFFF00); // on the way past 0
    EXPECT_FALSE(Put(writer, "") || Put(writer, std::string(writer.MostPayload() + 1, 'x')));
    ModelReader reader{ring, writer.StartPlace()};
    std::mt19937 random(1); // seeded: the same sizes in every run
    std::vector<std::string> sent;
    std::string keyFrame;
    int startsAtKeyFrame = 0;
    for (int i = 0; i < 3000; ++i) {
        SCOPED_TRACE(i);
        // The next place is announced: unfinished, whatever lay there in the last lap.
        ASSERT_EQ(reader.Look(), ModelReader::kUnfinished);
        sent.emplace_back(1 + random() % writer.MostPayload(), static_cast<char>('a' + i % 26));
        keyFrame = i % 5 == 0 ? sent.back() : keyFrame;
        ASSERT_TRUE(Put(writer, sent.back(), i % 5 == 0));
        ASSERT_EQ(reader.Look(), ModelReader::kFrame);
        ModelReader starting{ring, writer.StartPlace()};
        while (starting.Look() == ModelReader::kFrame) {
        }
        ASSERT_EQ(starting.Look(), ModelReader::kUnfinished);
        ASSERT_TRUE(starting.frames.empty() || starting.frames.front() == keyFrame);
        startsAtKeyFrame += starting.frames.empty() ? 0 : 1;
    }
    EXPECT_EQ(reader.frames, sent);
    EXPECT_GT(startsAtKeyFrame, 1000);
    for (int i = 0; i < 100; ++i)
        ASSERT_TRUE(Put(writer, std::string(400, 'p')));
    // All key frames are overwritten.
    EXPECT_EQ((ModelReader{ring, writer.StartPlace()}.Look()), ModelReader::kUnfinished);
}

TEST(RingWriter, MendsTheFirstRecordWhenALateReaderMarksThePauseOverIt)
{
    Ring ring = MakeRing();
    RingWriter writer(ring.data(), kRingBytes, 1);
    ASSERT_TRUE(Put(writer, std::string(1000, 'x')));
    writer.Pause();
    ModelReader late{ring, kRecordBytes + 1000};
    ASSERT_TRUE(Put(writer, "first"));
    ASSERT_EQ(late.Look(), ModelReader::kPaused); // marks offset 0
    ASSERT_TRUE(Put(writer, "second"));
    ASSERT_EQ(late.Look(), ModelReader::kFrame);
    ASSERT_EQ(late.Look(), ModelReader::kFrame);
    EXPECT_EQ(late.frames, (std::vector<std::string>{"first", "second"}));
}

} // namespace
