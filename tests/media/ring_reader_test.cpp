#include "media/ring_reader.h"

#include <iterator>
#include <sstream>

#include "media/key_frame_search.h"
#include "media/talk_reader.h"
#include "tests/media/fakes.h"
#include "tests/table.h"

namespace {

constexpr int32_t kType = 10;

std::vector<uint32_t> g_delivered; // serial numbers
int g_status;

const std::map<std::string, std::vector<uint8_t>> kStarts = {{"sps", {0, 0, 0, 1, 0x67}},
                                                             {"idr", {0, 0, 0, 1, 0x65}},
                                                             {"vps", {0, 0, 0, 1, 0x40}},
                                                             {"jpeg", {0xFF, 0xD8, 0, 0, 0x41}},
                                                             {"unmarked", {9, 0, 0, 1, 0x67}},
                                                             {"broken", {}},
                                                             {"", {}}};

uint32_t Number(const std::string& text)
{
    return static_cast<uint32_t>(std::stoul(text));
}

// Puts a record into the ring: its place, serial, length, flag and start, from the length on as far as said.
void PutRecord(TestRing& ring, const std::string& record, uint32_t timeStamp = 4000000000)
{
    std::istringstream words(record);
    uint32_t place = 0;
    std::string start;
    DataInfo header{};
    words >> place >> header.SerialNumber >> header.AVDataLen;
    if (!(words >> header.EndFlag))
        header.EndFlag = kFlagFrame;
    words >> start;
    header.AVDataCheck = start == "broken" ? 1 : kRecordMagic;
    header.TimeStamp = timeStamp;
    ring.Put(place, header, kStarts.at(start));
}

// Says where a reader is and what it has done since it was said last.
std::string Outcome(const std::string& place, FakeClock& clock)
{
    std::string text = "at " + place;
    for (const uint32_t serial : std::exchange(g_delivered, {}))
        text += (text.find("del") == text.npos ? ", delivered " : " ") + std::to_string(serial);
    for (const auto& [ms, times] : std::exchange(clock.sleeps, {}))
        text += (text.find("slept") == text.npos ? ", slept " : " ") + std::to_string(times) + "x" +
                std::to_string(ms);
    return text;
}

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

TEST_F(RingTest, EachRecordIsJudgedByItsRule)
{
    for (const TableRow& row : ReadTable(VELMORA_MEDIA_DATA "/ring_steps.tsv", 7)) {
        SCOPED_TRACE(row[0]);
        const uint32_t index = row[1][0] == '1' ? kSecondStream : kMainStream;
        g_status = row[1].ends_with("off") ? 0 : 1;
        TestRing ring(index);
        PutRecord(ring, "5000 900 5 254 sps");
        std::istringstream records(row[2]), start(row[3]), answers(row[4]);
        FakeClock clock;
        FakeLog log;
        FakeHost host({std::istream_iterator<uint32_t>(answers), {}});
        std::map<std::string, std::string> later; // after so many sleeps (@) or passes (%)
        for (std::string record; std::getline(records >> std::ws, record, ';');)
            if (record[0] == '@' || record[0] == '%')
                later[record.substr(0, record.find(' '))] = record.substr(record.find(' '));
            else
                PutRecord(ring, record);
        const auto putDue = [&](char kind, int count) {
            if (const auto due = later.find(kind + std::to_string(count)); due != later.end())
                PutRecord(ring, due->second);
        };
        int passes = 0, sleeps = 0;
        clock.onSleep = [&] { putDue('@', ++sleeps); };
        RingReader reader{.clientType = kType, .index = index};
        start >> reader.VideoPos >> reader.lastSerial >> passes;
        for (int pass = 1; pass <= passes; pass++) {
            ReaderStep(&reader);
            putDue('%', pass);
        }
        const size_t asked = host.commands.size();
        EXPECT_EQ(
            Outcome(std::to_string(reader.VideoPos) + " after " + std::to_string(reader.lastSerial), clock) +
                (asked != 0 ? ", asked " + std::to_string(asked) : ""),
            row[5]);
        EXPECT_TRUE(row[6].empty() || log.Count("AVStreamGetAVDataThread " + row[6] + "\n") == 1)
            << log.Lines();
    }
}

TEST_F(RingTest, SearchGoesOnAtKeyFramesAboveTheOldSerial)
{
    for (const TableRow& row : ReadTable(VELMORA_MEDIA_DATA "/key_frame_searches.tsv", 5)) {
        SCOPED_TRACE(row[0]);
        TestRing ring(kTalkAudio);
        PutRecord(ring, "9000 100 5 254 vps");
        PutRecord(ring, row[2] + " 5 5 254 " + row[1]);
        FakeClock clock;
        FakeHost host({Number(row[2]), 0xFFFFFFFF, 0xFFFFFFC0, 9000});
        RingSegment segment;
        ASSERT_TRUE(AttachRing(kTalkAudio, &segment));
        EXPECT_EQ(std::to_string(GetLastIFrame(&segment, kType, kTalkAudio, Number(row[3]))), row[4]);
        EXPECT_EQ(clock.sleeps[10], row[4] == "9000" ? 3 : 0);
        EXPECT_EQ(host.commands.back(), 0x2002U);
    }
}

TEST_F(RingTest, TalkReaderDeliversByTimeStamp)
{
    TestRing ring(kTalkAudio);
    FakeClock clock;
    FakeLog log;
    FakeHost host({0x20001, 0});
    TalkReader reader{};
    for (const TableRow& row : ReadTable(VELMORA_MEDIA_DATA "/talk_steps.tsv", 5)) {
        SCOPED_TRACE(row[0]);
        if (row[1] != "-")
            reader = {.place = {.clientType = kType, .index = kTalkAudio}, .timeStamp = Number(row[1])};
        PutRecord(ring, row[2], Number(row[3]));
        TalkReaderStep(&reader);
        EXPECT_EQ(Outcome(std::to_string(reader.place.VideoPos), clock), row[4]);
    }
    EXPECT_EQ(log.Count("AVStreamGetAudioTalkThread N: pDataInfo->AVDataLen = 10, AVSource = 0\n"), 1);
    EXPECT_EQ(log.Count("AVStreamGetAudioTalkThread N: AV_RINGBUFFER_FLAG_PAUSE\n"), 1);
}

} // namespace
