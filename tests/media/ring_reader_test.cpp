#include "media/ring_reader.h"

#include <optional>

#include "media/key_frame_search.h"
#include "media/talk_reader.h"
#include "tests/media/fakes.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr int32_t kType = 10;

std::vector<uint32_t> g_delivered; // serial numbers
int g_status;

DataInfo Header(uint32_t serial, int32_t length = 0, uint32_t flag = kFlagFrame,
                uint32_t magic = kRecordMagic)
{
    DataInfo header{};
    header.AVDataCheck = magic;
    header.SerialNumber = serial;
    header.AVDataLen = length;
    header.EndFlag = flag;
    header.TimeStamp = 4000000000;
    return header;
}

const Bytes kSps = {0, 0, 0, 1, 0x67}, kIdr = {0, 0, 0, 1, 0x65}, kVps = {0, 0, 0, 1, 0x40},
            kJpeg = {0xFF, 0xD8, 0, 0, 0x41};

class RingTest : public testing::Test {
  protected:
    RingTest()
    {
        g_delivered.clear();
        g_status = 1;
        g_clients[kType].frame = [](uint32_t, uint32_t, const uint8_t*, const DataInfo* header) {
            g_delivered.push_back(header->SerialNumber);
            return 0;
        };
        g_clients[kType].status = [](uint32_t) { return g_status; };
        for (ReaderFlags& flags : g_clients[kType].reader)
            flags.isRunning = true;
    }
};

struct Record {
    uint32_t position;
    DataInfo header;
    Bytes payload = {};
};

// A reader at a position with a last serial number makes so many passes. The host answers with 5000 if
// nothing else is said, where a key frame with serial number 900 lies on every ring. The line is logged
// exactly once.
void Step(const char* name, const std::vector<Record>& records, int32_t position, uint32_t last, int passes,
          int32_t positionAfter, uint32_t lastAfter, const std::vector<uint32_t>& delivered = {},
          const Sleeps& sleeps = {}, size_t queries = 0, const std::string& line = "",
          uint32_t index = kMainStream, const std::vector<uint32_t>& answers = {5000}, int status = 1)
{
    SCOPED_TRACE(name);
    g_delivered.clear();
    g_status = status;
    TestRing ring(index);
    ring.Put(5000, Header(900, 5), kSps);
    for (const auto& [place, header, payload] : records)
        ring.Put(place, header, payload);
    FakeClock clock;
    FakeLog log;
    FakeHost host(answers);
    RingReader reader{.clientType = kType, .index = index, .VideoPos = position, .lastSerial = last};
    for (int i = 0; i < passes; i++)
        ReaderStep(&reader);
    EXPECT_EQ(reader.VideoPos, positionAfter);
    EXPECT_EQ(reader.lastSerial, lastAfter);
    EXPECT_EQ(g_delivered, delivered);
    EXPECT_EQ(clock.sleeps, sleeps);
    EXPECT_EQ(host.commands.size(), queries);
    EXPECT_TRUE(line.empty() || log.Count("AVStreamGetAVDataThread " + line) == 1) << log.Lines();
}

TEST_F(RingTest, EachRecordIsJudgedByItsRule)
{
    Step("any first serial", {{33, Header(0, 10)}}, 33, 0, 1, 107, 0, {0});
    Step("frames in a row", {{0, Header(7, 10)}, {74, Header(8)}}, 0, 6, 2, 138, 8, {7, 8});
    Step("wrap keeps the serial", {{640, Header(9, 0, kFlagWrap)}, {0, Header(9, 4)}}, 640, 8, 2, 68, 9, {9},
         {}, 0, "N: MsgAVType = 10  Index = 0 Endflag == 255\n");
    Step("wrap at the start", {{0, Header(9, 0, kFlagWrap)}}, 0, 8, 3, 0, 8, {}, {{10, 3}});
    Step("pause is marked once", {{40000, Header(9, 5, kFlagPause)}}, 40000, 8, 3, 0, 0, {}, {{500, 3}}, 0,
         "N: Endflag == 253\n");
    Step("no magic", {{64, Header(7, 1, kFlagFrame, 1)}}, 64, 6, 2, 5000, 0, {}, {{1, 100}}, 1,
         "N: VideoIndex = 0 VideoPos = 64 AVDataCheck == 1\n");
    Step("unfinished", {{64, Header(7, 1, 5)}}, 64, 6, 2, 5000, 0, {}, {{5, 50}}, 1,
         "N: VideoIndex = 0 VideoPos = 64 Endflag == 5\n");
    Step("older", {{64, Header(5, 1)}}, 64, 6, 50, 5000, 0, {}, {{8, 50}}, 1,
         "N: VideoIndex = 0 VideoPos = 64 Endflag == 254\n");
    Step("step of 30", {{64, Header(36, 1)}}, 64, 6, 1, 129, 36, {36}, {}, 0,
         "N:MsgAVType = 10 VideoIndex = 0 sub = 36 - 6 = 30 pos = 64 \n");
    Step("step of 31", {{64, Header(37, 1)}}, 64, 6, 11, 5000, 0, {}, {{5, 1}}, 1,
         "N: MsgAVType = 10 index = 0 sub = 37 - 6 = 31 pos = 64 \n");
    Step("repeated before an IDR slice", {{64, Header(6, 16)}, {144, Header(7), kIdr}}, 64, 6, 1, 5000, 6, {},
         {}, 1, "N: VideoIndex = 0 pos = 64 pDataInfo->SerialNumber 6 oldSerialNumber 6\n");
    Step("length at the limit", {{0, Header(7, 0x400000)}}, 0, 6, 2, 0, 6, {}, {{5, 2}});
    Step("longest", {{0, Header(7, 0x3FFFFF)}}, 0, 6, 1, 0x40003F, 7, {7});
    Step("longest of the second stream", {{0, Header(7, 0xFFFFF)}}, 0, 6, 1, 0x10003F, 7, {7}, {}, 0, "",
         kSecondStream);
    Step("longest number", {{0, Header(7, 0x7FFFFFFF)}}, 0, 6, 1, 0, 6, {}, {{5, 1}});
    Step("length below zero", {{64, Header(7, -2147483647 - 1)}}, 64, 6, 1, 5000, 0, {}, {{5, 1}}, 1,
         "N: VideoIndex = 0 VideoPos = 64 AVDataLen = -2147483648 leaves the ring, searching anew\n");
    Step("limit of the second stream", {{0, Header(7, 0x100000)}}, 0, 6, 1, 0, 6, {}, {{5, 1}}, 0,
         "N: pDataInfo->AVDataLen = 1048576 up to Max 1048576\n", kSecondStream);
    Step("length up to the segment's end", {{0x3FFFFF, Header(7, 1)}}, 0x3FFFFF, 6, 1, 0x400040, 7, {7});
    Step("length beyond the segment", {{0x3FFFFF, Header(7, 2)}}, 0x3FFFFF, 6, 1, 5000, 0, {}, {{5, 1}}, 1,
         "N: VideoIndex = 0 VideoPos = 4194303 AVDataLen = 2 leaves the ring, searching anew\n");
    Step("at the ring's end", {}, 0x400000, 6, 1, -1, 6, {}, {{10, 1}});
    Step("at the second ring's end", {}, 0x100000, 6, 1, -1, 6, {}, {{10, 1}}, 0, "", kSecondStream);
    Step("below every ring", {}, -2, 6, 1, -1, 6, {}, {{10, 1}}, 0, "N VideoPos = -2\n");
    Step("unknown place", {}, -1, 0, 1, 5069, 900, {900}, {}, 1, "N: VideoPos = 5000\n");
    Step("unknown place, wrong answers", {}, -1, 0, 1, -1, 0, {}, {{1, 2}, {10, 1}}, 3, "", kMainStream,
         {0xFFFFFFFF, 0x400001, 0x400000});
    Step("stream is off", {}, 64, 6, 100, -1, 0, {}, {{50, 100}}, 0, "N: gTransFormStatusFunc[10](0) == 0\n",
         kMainStream, {}, 0);
    // Records that lead round: not read without a rest.
    Step("repeated JPEG", {{0, Header(6, 5), kJpeg}}, 0, 6, 66, 0, 6, {}, {{10, 2}}, 66, "", kMainStream,
         {0});
}

TEST_F(RingTest, WaitsDoNotAddUpAcrossAProgress)
{
    TestRing ring(kMainStream);
    FakeClock clock;
    FakeHost host({0});
    RingReader reader{.clientType = kType, .index = kMainStream, .VideoPos = 0, .lastSerial = 1};
    for (uint32_t serial = 2; serial < 6; serial++) {
        const auto place = static_cast<uint32_t>(reader.VideoPos);
        int sleeps = 0;
        ring.Put(place, Header(serial, 0, kFlagFrame, 0));
        clock.onSleep = [&] {
            if (++sleeps == 60)
                ring.Put(place, Header(serial, 0, 3));
            if (sleeps == 60 + 40)
                ring.Put(place, Header(serial + 38));
        };
        for (int i = 0; i < 2 + 9; i++)
            ReaderStep(&reader);
        EXPECT_EQ(sleeps, 60 + 40);
        ring.Put(place, Header(serial));
        ReaderStep(&reader);
    }
    EXPECT_EQ(g_delivered, (std::vector<uint32_t>{2, 3, 4, 5}));
    EXPECT_TRUE(host.commands.empty());
}

// Wherever the reader waits, its writer may have gone for ever, and another one have made a new ring.
TEST_F(RingTest, RingCreatedAnewIsFollowed)
{
    for (const DataInfo& header : {Header(9, 0, kFlagPause), Header(9, 0, kFlagWrap), Header(9, 0x400000),
                                   Header(8, 5), Header(9, -1)}) {
        g_delivered.clear();
        std::optional<TestRing> old(std::in_place, kMainStream);
        old->Put(0, header);
        FakeClock clock;
        FakeHost host({0});
        RingReader reader{.clientType = kType, .index = kMainStream, .VideoPos = 0, .lastSerial = 8};
        (void)AttachRing(kMainStream, &reader.ring);
        old.reset();
        TestRing anew(kMainStream);
        gGetAVStreamSysInfo.StreamSharememID[kMainStream] = -1; // found by its key alone
        anew.Put(0, Header(9, 5), kSps);
        for (int i = 0; i < 2; i++)
            ReaderStep(&reader);
        EXPECT_EQ(reader.ring.id, anew.id);
        EXPECT_EQ(g_delivered, std::vector<uint32_t>{9});
    }
}

// A record with serial number 5 lies where the host says first, a good one where it says at last.
void Search(const char* name, const Bytes& payload, uint32_t oldSerial, bool isFound, uint32_t position = 640)
{
    SCOPED_TRACE(name);
    TestRing ring(kTalkAudio);
    ring.Put(9000, Header(100, 5), kVps);
    ring.Put(position, Header(5, 5), payload);
    FakeClock clock;
    FakeHost host({position, 0xFFFFFFFF, 0xFFFFFFC0, 9000});
    RingSegment segment;
    ASSERT_TRUE(AttachRing(kTalkAudio, &segment));
    EXPECT_EQ(GetLastIFrame(&segment, kType, kTalkAudio, oldSerial),
              static_cast<int32_t>(isFound ? position : 9000));
    EXPECT_EQ(clock.sleeps[10], isFound ? 0 : 3);
    EXPECT_EQ(host.commands.back(), 0x2002U);
}

TEST_F(RingTest, SearchGoesOnAtKeyFramesAboveTheOldSerial)
{
    Search("SPS", kSps, 4, true);
    Search("SPS, any serial", kSps, 0, true);
    Search("SPS, same serial", kSps, 5, false);
    Search("VPS, older serial", kVps, 6, false);
    Search("JPEG, same serial", kJpeg, 5, true);
    Search("IDR slice", kIdr, 4, false);
    Search("SPS without start code", {9, 0, 0, 1, 0x67}, 4, false);
    Search("last place", kSps, 4, true, 0x20000 - 69);
    Search("at the ring's end", kSps, 4, false, 0x20000 - 68);
}

TEST_F(RingTest, TalkReaderDeliversByTimeStamp)
{
    TestRing ring(kTalkAudio);
    FakeClock clock;
    FakeLog log;
    FakeHost host({0x20001, 0});
    // The clock starts again from 0 after 50 days.
    const std::tuple<uint32_t, uint32_t, bool> times[] = {{5, 5, false},          {5, 6, true},
                                                          {0xFFFFFFFF, 0, true},  {100, ~0U - 100, false},
                                                          {~0U - 100, 100, true}, {0, 0x7FFFFFFF, true}};
    for (const auto& [last, next, isLater] : times) {
        TalkReader reader{.place = {.clientType = kType, .index = kTalkAudio, .VideoPos = 0},
                          .timeStamp = last};
        DataInfo header = Header(next);
        header.TimeStamp = next;
        ring.Put(0, header);
        TalkReaderStep(&reader);
        EXPECT_EQ(g_delivered == std::vector{next}, isLater) << last << " and then " << next;
        g_delivered.clear();
    }
    TalkReader reader{.place = {.clientType = kType, .index = kTalkAudio}, .timeStamp = 1000};
    const auto step = [&](const char* name, uint32_t position, DataInfo header, uint32_t timeStamp,
                          int32_t positionAfter, const Sleeps& sleeps) {
        SCOPED_TRACE(name);
        header.TimeStamp = timeStamp;
        ring.Put(position, header);
        clock.sleeps.clear();
        TalkReaderStep(&reader);
        EXPECT_EQ(reader.place.VideoPos, positionAfter);
        EXPECT_EQ(clock.sleeps, sleeps);
    };
    step("new", 0, Header(1, 10, kFlagFrame, 0), 1001, 74, {{20, 1}, {50, 1}});
    step("older lap's", 74, Header(9, 10), 1001, 74, {{50, 1}});
    step("unfinished", 74, Header(9, 10, 5), 1002, 74, {{50, 1}});
    step("written at last", 74, Header(2), 1002, 138, {{50, 1}});
    step("wrap", 138, Header(9, 0, kFlagWrap), 0, 0, {});
    step("wrap at the start", 0, Header(9, 0, kFlagWrap), 0, 0, {{50, 1}});
    step("too long", 0, Header(9, 0x20000), 1003, 0, {{50, 1}});
    step("leaves the segment", 0, Header(9, -1), 1003, -1, {{50, 1}});
    step("pause", 0, Header(9, 5, kFlagPause), 0, 0, {{500, 1}});
    step("still paused", 0, Header(9, 5, kFlagPause), 0, 0, {{500, 1}});
    EXPECT_EQ(g_delivered, (std::vector<uint32_t>{1, 2}));
    EXPECT_EQ(log.Count("AVStreamGetAudioTalkThread N: pDataInfo->AVDataLen = 10, AVSource = 0\n"), 1);
    EXPECT_EQ(log.Count("AVStreamGetAudioTalkThread N: AV_RINGBUFFER_FLAG_PAUSE\n"), 1);
}

} // namespace
