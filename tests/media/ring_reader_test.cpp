#include "media/ring_reader.h"

#include <gtest/gtest.h>

#include <climits>
#include <memory>

#include "media/frame_source_state.h"
#include "media/key_frame_search.h"
#include "media/talk_reader.h"
#include "tests/media/fakes.h"

namespace {

constexpr int32_t kType = 10;
constexpr uint32_t kFrame = kFlagFrame;

std::vector<uint32_t> g_delivered; // serial numbers
std::vector<const uint8_t*> g_payloads;
int g_status;

int Collect(uint32_t, uint32_t, const uint8_t* payload, const DataInfo* header)
{
    g_delivered.push_back(header->SerialNumber);
    g_payloads.push_back(payload);
    return 0;
}

int Status(uint32_t)
{
    return g_status;
}

DataInfo Header(uint32_t serial, int32_t length = 0, uint32_t flag = kFrame, uint32_t magic = kRecordMagic)
{
    DataInfo header{};
    header.AVDataCheck = magic;
    header.SerialNumber = serial;
    header.AVDataLen = length;
    header.EndFlag = flag;
    header.ulReserved12 = 7;
    header.TimeStamp = 4000000000;
    return header;
}

const std::vector<uint8_t> kSps = {0, 0, 0, 1, 0x67}, kSlice = {0, 0, 0, 1, 0x41}, kIdr = {0, 0, 0, 1, 0x65},
                           kVps = {0, 0, 0, 1, 0x40}, kJpeg = {0xFF, 0xD8, 0, 0, 0x41},
                           kBareSps = {9, 0, 0, 1, 0x67};

class RingTest : public testing::Test {
  protected:
    RingTest()
    {
        g_delivered.clear();
        g_payloads.clear();
        g_status = 1;
        g_clients[kType].frame = Collect;
        g_clients[kType].status = Status;
        for (ReaderFlags& flags : g_clients[kType].reader)
            flags.isRunning = true;
    }
    ~RingTest() override { g_clients[kType].frame = nullptr; }
};

struct Record {
    uint32_t position;
    DataInfo header;
    std::vector<uint8_t> payload = {};
};

using Sleeps = std::map<uint32_t, int>;

// A reader at a position with a last serial number makes so many passes. A host that is asked names
// 5000, where a key frame with serial number 900 lies on every ring.
struct StepCase {
    const char* name;
    std::vector<Record> ring;
    int32_t position;
    uint32_t last;
    int passes;
    int32_t positionAfter;
    uint32_t lastAfter;
    std::vector<uint32_t> delivered;
    Sleeps sleeps;
    size_t queries;
    const char* line; // logged, exactly once
    uint32_t index;
};

StepCase Row(const char* name, std::vector<Record> ring, int32_t position, uint32_t last, int passes,
             int32_t positionAfter, uint32_t lastAfter, std::vector<uint32_t> delivered = {},
             Sleeps sleeps = {}, size_t queries = 0, const char* line = "", uint32_t index = kMainStream)
{
    return {name,      std::move(ring),      position,          last,    passes, positionAfter,
            lastAfter, std::move(delivered), std::move(sleeps), queries, line,   index};
}

const StepCase kStepCases[] = {
    Row("first serial is any", {{0, Header(77, 10)}}, 0, 0, 1, 74, 77, {77}),
    Row("first serial may be zero", {{0, Header(0, 10)}}, 0, 0, 1, 74, 0, {0}),
    Row("frames follow each other", {{0, Header(7, 10)}, {74, Header(8)}}, 0, 6, 2, 138, 8, {7, 8}),
    Row("unaligned place", {{33, Header(7, 1)}}, 33, 6, 1, 98, 7, {7}),
    Row("wrap keeps the serial", {{640, Header(9, 0, kFlagWrap)}, {0, Header(9, 4)}}, 640, 8, 2, 68, 9, {9},
        {}, 0, "AVStreamGetAVDataThread #: MsgAVType = 10  Index = 0 Endflag == 255\n"),
    Row("wrap at the start rests", {{0, Header(9, 0, kFlagWrap)}}, 0, 8, 3, 0, 8, {}, {{10, 3}}),
    Row("magic is waited for 100 times", {{64, Header(7, 1, kFrame, 1)}}, 64, 6, 100, 64, 6, {}, {{1, 100}}),
    Row("magic fails the 101st time", {{64, Header(7, 1, kFrame, 1)}}, 64, 6, 101, 5000, 0, {}, {{1, 100}}, 1,
        "AVStreamGetAVDataThread #: VideoIndex = 0 VideoPos = 64 AVDataCheck == 1\n"),
    Row("unfinished 49 times", {{64, Header(7, 1, 5)}}, 64, 6, 49, 64, 6, {}, {{5, 49}}),
    Row("unfinished 50 times", {{64, Header(7, 1, 5)}}, 64, 6, 50, 5000, 0, {}, {{5, 50}}, 1,
        "AVStreamGetAVDataThread #: VideoIndex = 0 VideoPos = 64 Endflag == 5\n"),
    Row("older 49 times", {{64, Header(5, 1)}}, 64, 6, 49, 64, 6, {}, {{8, 49}}),
    Row("older 50 times", {{64, Header(5, 1)}}, 64, 6, 50, 5000, 0, {}, {{8, 50}}, 1,
        "AVStreamGetAVDataThread #: VideoIndex = 0 VideoPos = 64 Endflag == 254\n"),
    Row("step of 2", {{64, Header(8, 1)}}, 64, 6, 1, 129, 8, {8}, {}, 0,
        "AVStreamGetAVDataThread #:MsgAVType = 10 VideoIndex = 0 sub = 8 - 6 = 2 pos = 64 \n"),
    Row("step of 30", {{64, Header(36, 1)}}, 64, 6, 1, 129, 36, {36}),
    Row("step of 31, seen 10 times", {{64, Header(37, 1)}}, 64, 6, 10, 64, 6),
    Row("step of 31, seen 11 times", {{64, Header(37, 1)}}, 64, 6, 11, 5000, 0, {}, {{5, 1}}, 1,
        "AVStreamGetAVDataThread #: MsgAVType = 10 index = 0 sub = 37 - 6 = 31 pos = 64 \n"),
    Row("step of half the numbers", {{64, Header(0x80000001, 1)}}, 64, 1, 10, 64, 1),
    Row("step as a signed difference", {{64, Header(0xFFFFFFFF, 1)}}, 64, 1, 1, 129, 0xFFFFFFFF, {0xFFFFFFFF},
        {}, 0,
        "AVStreamGetAVDataThread #:MsgAVType = 10 VideoIndex = 0 sub = 4294967295 - 1 = 2 pos = 64 \n"),
    Row("after the jump the newest is delivered", {{64, Header(37, 1)}}, 64, 6, 12, 5069, 900, {900},
        {{5, 1}}, 1),
    Row("repeated before an SPS", {{64, Header(6, 16)}, {144, Header(7, 5), kSps}}, 64, 6, 1, 144, 6, {}, {},
        0,
        "AVStreamGetAVDataThread #: VideoIndex = 0 pos = 64 pDataInfo->SerialNumber 6 oldSerialNumber 6\n"),
    Row("repeated before a slice", {{64, Header(6, 16)}, {144, Header(7, 5), kSlice}}, 64, 6, 2, 213, 7, {7}),
    Row("repeated before anything else", {{64, Header(6, 16)}, {144, Header(7, 5), kIdr}}, 64, 6, 1, 5000, 6,
        {}, {}, 1),
    Row("repeated at the segment's end", {{0x3FFF00, Header(6, 192)}}, 0x3FFF00, 6, 1, 5000, 6, {}, {}, 1),
    Row("longest length", {{0, Header(7, 0x3FFFFF)}}, 0, 6, 1, 0x40003F, 7, {7}),
    Row("length at the limit is waited on", {{0, Header(7, 0x400000)}}, 0, 6, 2, 0, 6, {}, {{5, 2}}),
    Row("length limit of the second stream", {{0, Header(7, 0x100000)}}, 0, 6, 1, 0, 6, {}, {{5, 1}}, 0,
        "AVStreamGetAVDataThread #: pDataInfo->AVDataLen = 1048576 up to Max 1048576\n", kSecondStream),
    Row("length up to the segment's end", {{0x3FFFFF, Header(7, 1)}}, 0x3FFFFF, 6, 1, 0x400040, 7, {7}),
    Row("length beyond the segment", {{0x3FFFFF, Header(7, 2)}}, 0x3FFFFF, 6, 1, 5000, 0, {}, {{5, 1}}, 1,
        "AVStreamGetAVDataThread #: VideoIndex = 0 VideoPos = 4194303 AVDataLen = 2 leaves the ring, "
        "searching "
        "anew\n"),
    Row("negative length", {{64, Header(7, -1)}}, 64, 6, 1, 5000, 0, {}, {{5, 1}}, 1),
    Row("most negative length", {{64, Header(7, INT_MIN)}}, 64, 6, 1, 5000, 0, {}, {{5, 1}}, 1),
    Row("at the ring's end", {}, 0x400000, 6, 1, -1, 6, {}, {{10, 1}}, 0,
        "CheckOutOfPos # iVideoIndex = 0 VideoPos = 4194304\n"),
    Row("at the second ring's end", {}, 0x100000, 6, 1, -1, 6, {}, {{10, 1}}, 0, "", kSecondStream),
    Row("below every ring", {}, -2, 6, 1, -1, 6, {}, {{10, 1}}, 0,
        "AVStreamGetAVDataThread # VideoPos = -2\n"),
    Row("unknown place asks the host", {}, -1, 0, 1, 5069, 900, {900}, {}, 1,
        "AVStreamGetAVDataThread #: VideoPos = 5000\n"),
};

TEST_F(RingTest, EachRecordIsJudgedByItsRule)
{
    for (const StepCase& c : kStepCases) {
        SCOPED_TRACE(c.name);
        g_delivered.clear();
        TestRing ring(c.index);
        ring.Put(5000, Header(900, 5), kSps);
        for (const Record& record : c.ring)
            ring.Put(record.position, record.header, record.payload);
        FakeClock clock;
        FakeLog log;
        FakeHost host({5000});
        RingReader reader{
            .clientType = kType, .index = c.index, .VideoPos = c.position, .lastSerial = c.last};
        for (int i = 0; i < c.passes; i++)
            ReaderStep(&reader);
        EXPECT_EQ(reader.VideoPos, c.positionAfter);
        EXPECT_EQ(reader.lastSerial, c.lastAfter);
        EXPECT_EQ(g_delivered, c.delivered);
        EXPECT_EQ(clock.Counts(), c.sleeps);
        EXPECT_EQ(host.commands.size(), c.queries);
        if (c.line[0] != '\0') {
            EXPECT_EQ(log.Count(c.line), 1) << testing::PrintToString(log.lines);
        }
    }
}

TEST_F(RingTest, WaitsDoNotAddUpAcrossAProgress)
{
    TestRing ring(kMainStream);
    FakeClock clock;
    FakeHost host({0});
    RingReader reader{.clientType = kType, .index = kMainStream, .VideoPos = 0, .lastSerial = 1};
    for (uint32_t round = 0; round < 4; round++) {
        const auto place = static_cast<uint32_t>(reader.VideoPos);
        ring.Put(place, Header(2 + round, 0, kFrame, 0));
        for (int i = 0; i < 60; i++)
            ReaderStep(&reader); // no magic
        ring.Put(place, Header(2 + round, 0, 3));
        for (int i = 0; i < 40; i++)
            ReaderStep(&reader); // unfinished
        ring.Put(place, Header(40 + round, 0));
        for (int i = 0; i < 9; i++)
            ReaderStep(&reader); // too far ahead
        ring.Put(place, Header(2 + round, 0));
        ReaderStep(&reader);
    }
    EXPECT_EQ(g_delivered, (std::vector<uint32_t>{2, 3, 4, 5}));
    EXPECT_TRUE(host.commands.empty());
}

TEST_F(RingTest, PauseIsMarkedOnceAndPolledAtTheStart)
{
    TestRing ring(kMainStream);
    ring.Put(0, Header(1, 100), kSps);
    DataInfo pause = Header(41, 5, kFlagPause);
    pause.AVSource = 3;
    ring.Put(40000, pause);
    FakeClock clock;
    FakeLog log;
    FakeHost host({0});
    RingReader reader{.clientType = kType, .index = kMainStream, .VideoPos = 40000, .lastSerial = 40};
    for (int i = 0; i < 3; i++)
        ReaderStep(&reader);
    const DataInfo mark = ring.At(0);
    EXPECT_EQ(mark.AVDataCheck, kRecordMagic);
    EXPECT_EQ(mark.SerialNumber, 0U);
    EXPECT_EQ(mark.AVDataLen, 0);
    EXPECT_EQ(mark.ulReserved12, 0U);
    EXPECT_EQ(mark.AVSource, 3U);
    EXPECT_EQ(mark.EndFlag, 0xFDU);
    EXPECT_EQ(mark.TimeStamp, pause.TimeStamp);
    EXPECT_EQ(clock.Counts(), (Sleeps{{500, 3}}));
    EXPECT_EQ(log.Count("AVStreamGetAVDataThread #: Endflag == 253\n"), 1);
    EXPECT_EQ(reader.VideoPos, 0);

    ring.Put(0, Header(3, 8)); // below the last serial, which the pause forgot
    ReaderStep(&reader);
    EXPECT_EQ(g_delivered, std::vector<uint32_t>{3});
    ring.Put(72, pause);
    ReaderStep(&reader);
    EXPECT_EQ(log.Count("AVStreamGetAVDataThread #: Endflag == 253\n"), 2);
}

TEST_F(RingTest, PayloadIsHandedOutInPlaceWithACopyOfTheHeader)
{
    TestRing ring(kMainStream);
    ring.Put(128, Header(5, 5), kSlice);
    RingReader reader{.clientType = kType, .index = kMainStream, .VideoPos = 128};
    ReaderStep(&reader);
    ASSERT_EQ(g_payloads.size(), 1U);
    EXPECT_EQ(g_payloads[0], reader.ring.attachment.get() + 128 + 64);
}

TEST_F(RingTest, StreamThatIsOffIsAskedAgainEvery50Ms)
{
    TestRing ring(kMainStream);
    FakeClock clock;
    FakeLog log;
    g_status = 0;
    RingReader reader{.clientType = kType, .index = kMainStream, .VideoPos = 64, .lastSerial = 6};
    for (int i = 0; i < 100; i++)
        ReaderStep(&reader);
    EXPECT_EQ(reader.VideoPos, -1);
    EXPECT_EQ(reader.lastSerial, 0U);
    EXPECT_EQ(clock.Counts(), (Sleeps{{50, 100}}));
    EXPECT_EQ(log.lines,
              std::vector<std::string>{"AVStreamGetAVDataThread #: gTransFormStatusFunc[10](0) == 0\n"});
}

TEST_F(RingTest, StartPositionIsAskedForUntilItLiesInTheRing)
{
    const struct {
        uint32_t index;
        uint32_t limit;
    } kRows[] = {{kMainStream, 0x400000}, {kSecondStream, 0x100000}, {kThirdStream, 0x100000}};
    for (const auto& row : kRows) {
        TestRing ring(row.index);
        FakeClock clock;
        FakeHost host({0xFFFFFFFF, 0x80000000, row.limit + 1, row.limit});
        RingReader reader{.clientType = kType, .index = row.index};
        ReaderStep(&reader);
        EXPECT_EQ(host.commands, std::vector<uint32_t>(4, 0x2001));
        EXPECT_EQ(clock.sleepsMs, (std::vector<uint32_t>{1, 1, 1, 10})); // the limit itself is refused then
        EXPECT_EQ(reader.VideoPos, -1);
    }
}

TEST_F(RingTest, RecordsThatLeadRoundAreNotReadWithoutARest)
{
    const struct {
        const char* name;
        std::vector<Record> ring;
        uint32_t last;
    } kCases[] = {
        {"zero serials", {{0, Header(0, 0)}, {64, Header(9, 0, kFlagWrap)}}, 0},
        {"repeated and wrapped", {{0, Header(6, 0)}, {64, Header(9, 0, kFlagWrap), kSps}}, 6},
        {"a JPEG that is always repeated", {{0, Header(6, 5), kJpeg}}, 6},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        TestRing ring(kMainStream);
        for (const Record& record : c.ring)
            ring.Put(record.position, record.header, record.payload);
        FakeClock clock;
        FakeHost host({0});
        RingReader reader{.clientType = kType, .index = kMainStream, .VideoPos = 0, .lastSerial = c.last};
        for (int i = 0; i < 330; i++)
            ReaderStep(&reader);
        EXPECT_GE(clock.sleepsMs.size(), 9U);
    }
}

TEST_F(RingTest, SegmentSmallerThanItsRingIsRefusedUntilItIsReplaced)
{
    auto small = std::make_unique<TestRing>(kSecondStream, 0xF0000);
    FakeClock clock;
    FakeLog log;
    FakeHost host({0});
    RingReader reader{.clientType = kType, .index = kSecondStream};
    ReaderStep(&reader);
    EXPECT_EQ(clock.sleepsMs, std::vector<uint32_t>{20});
    EXPECT_EQ(log.Count("AVStreamGetAVDataThread #: pAVData = NULL\n"), 1);
    EXPECT_EQ(log.lines.size(), 2U); // the reason before it
    small.reset();
    TestRing ring(kSecondStream);
    gGetAVStreamSysInfo.StreamSharememID[kSecondStream] = -1; // found by its key alone
    ring.Put(0, Header(4, 1));
    for (int i = 0; i < 2; i++)
        ReaderStep(&reader);
    EXPECT_EQ(g_delivered, std::vector<uint32_t>{4});
}

TEST_F(RingTest, RingCreatedAnewIsAttachedWhenThePlaceIsLost)
{
    auto old = std::make_unique<TestRing>(kMainStream);
    old->Put(0, Header(1000, 5), kSps);
    old->Put(69, Header(1000, 5), kSps); // repeated, which loses the place and keeps the serial number
    FakeClock clock;
    FakeHost host({0});
    RingReader reader{.clientType = kType, .index = kMainStream, .VideoPos = 0};
    ReaderStep(&reader);
    old.reset();
    TestRing anew(kMainStream);
    anew.Put(0, Header(1, 5), kSps); // its serial numbers are far below
    for (int i = 0; i < 2; i++)
        ReaderStep(&reader);
    EXPECT_EQ(reader.ring.id, anew.id());
    EXPECT_EQ(g_delivered, (std::vector<uint32_t>{1000, 1}));
}

const struct SearchCase {
    const char* name;
    DataInfo header;
    std::vector<uint8_t> payload;
    uint32_t oldSerial;
    bool isFound;
} kSearchCases[] = {
    {"SPS", Header(5, 5), kSps, 4, true},
    {"SPS, any serial", Header(5, 5), kSps, 0, true},
    {"SPS, same serial", Header(5, 5), kSps, 5, false},
    {"SPS, older serial", Header(5, 5), kSps, 6, false},
    {"VPS", Header(5, 5), kVps, 4, true},
    {"VPS, same serial", Header(5, 5), kVps, 5, false},
    {"JPEG, same serial", Header(5, 5), kJpeg, 5, true},
    {"slice", Header(5, 5), kSlice, 4, false},
    {"IDR slice", Header(5, 5), kIdr, 4, false},
    {"PPS", Header(5, 5), {0, 0, 0, 1, 0x68}, 4, false},
    {"SPS without start code", Header(5, 5), kBareSps, 4, false},
};

TEST_F(RingTest, SearchGoesOnAtKeyFramesAboveTheOldSerial)
{
    constexpr uint32_t kGood = 9000;
    for (const SearchCase& c : kSearchCases) {
        SCOPED_TRACE(c.name);
        TestRing ring(kMainStream);
        ring.Put(640, c.header, c.payload);
        ring.Put(kGood, Header(100, 5), kVps);
        FakeClock clock;
        FakeHost host({640, kGood});
        RingSegment segment;
        ASSERT_TRUE(AttachRing(kMainStream, &segment));
        EXPECT_EQ(GetLastIFrame(&segment, kType, kMainStream, c.oldSerial),
                  static_cast<int32_t>(c.isFound ? 640 : kGood));
        EXPECT_EQ(clock.sleepsMs, std::vector<uint32_t>(c.isFound ? 0 : 1, 10));
        EXPECT_EQ(host.commands.back(), 0x2002U);
    }
}

TEST_F(RingTest, SearchRefusesPlacesAtTheRingsEndAndEndsWithTheReader)
{
    const struct {
        uint32_t index;
        uint32_t ringBytes;
    } kRows[] = {{kMainStream, 0x400000}, {kSecondStream, 0x100000}, {kTalkAudio, 0x20000}};
    for (const auto& row : kRows) {
        TestRing ring(row.index);
        ring.Put(row.ringBytes - 69, Header(5, 5), kSps);
        FakeClock clock;
        FakeHost host({row.ringBytes - 68, 0xFFFFFFFF, 0xFFFFFFC0, row.ringBytes - 69});
        RingSegment segment;
        ASSERT_TRUE(AttachRing(row.index, &segment));
        EXPECT_EQ(GetLastIFrame(&segment, kType, row.index, 0), static_cast<int32_t>(row.ringBytes - 69));
        EXPECT_EQ(clock.sleepsMs, (std::vector<uint32_t>{10, 10, 10}));
    }
    TestRing ring(kMainStream);
    ring.Put(640, Header(5, 5), kIdr);
    FakeClock clock;
    clock.onSleep = [] { g_clients[kType].reader[kMainStream].isRunning = false; };
    FakeLog log;
    FakeHost host({640});
    RingSegment segment;
    ASSERT_TRUE(AttachRing(kMainStream, &segment));
    EXPECT_EQ(GetLastIFrame(&segment, kType, kMainStream, 0), 640);
    EXPECT_EQ(log.lines.back(), "GetLastIFrame #: VideoPos = 640 nalu = 0x65\n");
    EXPECT_EQ(GetLastIFrame(&segment, kType, kMainStream, 0), -1);
}

TEST_F(RingTest, ThreadRefusesBadArgumentsAndEndsWithItsFlag)
{
    TestRing ring(kMainStream);
    FakeClock clock;
    FakeHost host({0});
    const struct {
        ReaderArgument argument;
        int32_t segment;
        std::vector<std::string> lines; // after the first
    } kCases[] = {
        {{kType, 4}, 0, {"#: VideoIndex 4 is out of range!\n", "#: AVStreamGetAVDataThread 10 4 exit!\n"}},
        {{17, 0}, 0, {"#: MsgAVType 17 is out of range!\n", "#: AVStreamGetAVDataThread 17 0 exit!\n"}},
        {{1, 0}, 0, {"#: MsgAVType 1 is out of range!\n", "#: AVStreamGetAVDataThread 1 0 exit!\n"}},
        {{kType, 0}, -1, {"#: StreamSysInfo->StreamSharememID[0] -1 < 0\n"}},
        {{kType, 0}, ring.id(), {"#: AVStreamGetAVDataThread 10 0 exit!\n"}},
    };
    g_clients[kType].reader[kMainStream].isRunning = false;
    for (const auto& c : kCases) {
        FakeLog log;
        gGetAVStreamSysInfo.StreamSharememID[kMainStream] = c.segment;
        ReaderArgument argument = c.argument;
        AVStreamGetAVDataThread(&argument);
        std::vector<std::string> expected = {"#: type = " + std::to_string(argument.clientType) +
                                             " index = " + std::to_string(argument.index) + "\n"};
        expected.insert(expected.end(), c.lines.begin(), c.lines.end());
        for (std::string& line : expected)
            line.insert(0, "AVStreamGetAVDataThread ");
        EXPECT_EQ(log.lines, expected);
    }
}

TEST_F(RingTest, TalkReaderDeliversByTimeStamp)
{
    TestRing ring(kTalkAudio);
    DataInfo record = Header(0, 10, kFrame, 0); // neither magic nor serial number
    record.TimeStamp = 1001;
    ring.Put(0, record);
    record.SerialNumber = 1; // an older lap's
    record.TimeStamp = 1001;
    ring.Put(74, record);
    FakeClock clock;
    FakeLog log;
    FakeHost host({0x20001, 0});
    TalkReader reader{.place = {.clientType = kType, .index = kTalkAudio}, .timeStamp = 1000};
    for (int i = 0; i < 3; i++)
        TalkReaderStep(&reader);
    EXPECT_EQ(g_delivered, std::vector<uint32_t>{0});
    EXPECT_EQ(clock.sleepsMs, (std::vector<uint32_t>{20, 50, 50, 50}));
    EXPECT_EQ(log.Count("AVStreamGetAudioTalkThread #: pDataInfo->AVDataLen = 10, AVSource = 0\n"), 1);

    record.TimeStamp = 1002;
    ring.Put(74, record); // written at last
    ring.Put(148, Header(0, 0, kFlagWrap));
    for (int i = 0; i < 2; i++)
        TalkReaderStep(&reader);
    EXPECT_EQ(g_delivered, (std::vector<uint32_t>{0, 1}));
    EXPECT_EQ(reader.place.VideoPos, 0);

    clock.sleepsMs.clear();
    ring.Put(0, Header(2, -1)); // leads out of the ring: asks again
    TalkReaderStep(&reader);
    EXPECT_EQ(reader.place.VideoPos, -1);
    ring.Put(0, Header(2, 0, kFlagPause));
    for (int i = 0; i < 2; i++)
        TalkReaderStep(&reader);
    EXPECT_EQ(clock.sleepsMs, (std::vector<uint32_t>{50, 500, 500}));
    EXPECT_EQ(log.Count("AVStreamGetAudioTalkThread #: AV_RINGBUFFER_FLAG_PAUSE\n"), 1);
    EXPECT_EQ(ring.At(0).SerialNumber, 0U);
}

} // namespace
