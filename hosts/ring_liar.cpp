#include "hosts/ring_liar.h"

#include <pthread.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <utility>

namespace {

constexpr uint8_t kStarts[][8] = {
    {0, 0, 0, 1, 0x67, 'l', 'i', 'e'},                                    // key frames of H.264 and H.265
    {0, 0, 0, 1, 0x40, 'l', 'i', 'e'}, {0, 0, 0, 1, 0x41, 'l', 'i', 'e'}, // other frames
    {0, 0, 0, 1, 0x02, 'l', 'i', 'e'}, {0xFF, 0xD8, 0xFF, 0xE0, 0, 'l', 'i', 'e'},
};
constexpr double kMostSeconds = 86400;
// Where lies come without a rest, readers find no record as they left it; with rests they follow.
constexpr uint32_t kFastLies = 40000;
constexpr uint32_t kPacedLies = 256;
constexpr uint32_t kMostPaceUs = 4000;
constexpr uint32_t kUsualBytes = 2000;
constexpr uint32_t kLargeBytes = 0x40000;
constexpr uint32_t kMostAudioBytes = 0x1FFF;
constexpr uint32_t kSerialLimit = 0xF0000000; // the truth must find some above all lies
constexpr uint8_t kNoAudio = 0x80; // in a spoilt byte: no word with it makes a record an audio record

} // namespace

std::optional<LiePlan> LiePlanOfText(const std::string& text)
{
    double seconds = -1;
    uint32_t ulSeed = 0;
    int end = -1;
    (void)sscanf(text.c_str(), "%lf,%" SCNu32 "%n", &seconds, &ulSeed, &end);
    if (end < 0 || static_cast<size_t>(end) != text.size() || !(seconds >= 0 && seconds <= kMostSeconds))
        return std::nullopt;
    return LiePlan{std::chrono::duration<double>(seconds), ulSeed};
}

RingLiar::RingLiar(RingWriter* ring, const LiePlan& plan, std::function<void()> onTruth)
    : ring_(ring), onTruth_(std::move(onTruth)), random_(plan.ulSeed),
      thread_([this, time = plan.time](const std::stop_token& stop) { Run(stop, time); })
{
}

uint32_t RingLiar::Place(uint32_t truth)
{
    return isLying_ ? named_.load() : truth;
}

void RingLiar::Run(const std::stop_token& stop, std::chrono::duration<double> time)
{
    pthread_setname_np(pthread_self(), "liar");
    const auto end = std::chrono::steady_clock::now() + time;
    bool isPaced = false;
    for (uint32_t left = 0; !stop.stop_requested() && std::chrono::steady_clock::now() < end; left--) {
        if (left == 0) {
            isPaced = !isPaced;
            left = 1 + Random(isPaced ? kPacedLies : kFastLies);
        }
        ring_->Spoil([this](uint8_t* ring, uint32_t ringBytes) { Lie(ring, ringBytes); });
        if (isPaced)
            std::this_thread::sleep_for(std::chrono::microseconds(Random(kMostPaceUs)));
    }
    isLying_ = false;
    if (stop.stop_requested())
        return;
    ring_->Restart(highestSerial_ + 1);
    onTruth_();
}

uint32_t RingLiar::Random(uint32_t below)
{
    return static_cast<uint32_t>(random_()) % below;
}

void RingLiar::Lie(uint8_t* ring, uint32_t ringBytes)
{
    if (place_ > ringBytes - kRecordBytes)
        place_ = Random(ringBytes - kRecordBytes);
    switch (Random(64)) {
    case 0:
        PutMark(ring, kFlagPause);
        break;
    case 1:
        PutMark(ring, kFlagWrap);
        break;
    case 2:
        place_ = Random(ringBytes);
        break;
    case 3:
        place_ = Random(place_ + 1); // a rewind
        break;
    case 4:
    case 5:
        Spoil(ring, ringBytes);
        break;
    case 6:
        named_ = Random(ringBytes + ringBytes / 16);
        break;
    case 7:
        serial_ = 1 + Random(kSerialLimit);
        break;
    default:
        PutRecord(ring, ringBytes);
    }
}

DataInfo RingLiar::Header()
{
    DataInfo header{};
    header.AVDataCheck = Random(32) == 0 ? Random(kRecordMagic) : kRecordMagic;
    header.SerialNumber = serial_;
    header.AVDataLen = static_cast<int32_t>(Random(Random(16) == 0 ? kLargeBytes : kUsualBytes));
    header.AVSource = Random(4) == 0 ? kSourceAudio : kSourceVideo;
    header.EndFlag = Random(16) == 0 ? Random(256) : kFlagFrame;
    header.TimeStamp = static_cast<uint32_t>(random_());
    if (header.AVSource == kSourceAudio)
        header.AVDataLen %= kMostAudioBytes;
    else if (Random(16) == 0)
        header.AVDataLen = static_cast<int32_t>(random_() * 2U);
    return header;
}

// Sometimes published at once, sometimes when its payload stands; half of the time the place behind it is
// announced.
void RingLiar::PutRecord(uint8_t* ring, uint32_t ringBytes)
{
    DataInfo header = Header();
    const uint32_t flag = std::exchange(header.EndFlag, Random(2) == 0 ? header.EndFlag : 0);
    const uint32_t room = ringBytes - place_ - kRecordBytes;
    const uint32_t bytes = std::min(static_cast<uint32_t>(std::max(header.AVDataLen, 0)), room);
    memcpy(ring + place_, &header, sizeof header);
    memset(ring + place_ + kRecordBytes, static_cast<int>(random_()), bytes);
    const auto& start = kStarts[Random(std::size(kStarts))];
    memcpy(ring + place_ + kRecordBytes, start, std::min<size_t>(bytes, sizeof start));
    if (Random(4) == 0)
        named_ = place_;
    const uint32_t next = place_ + kRecordBytes + bytes;
    if (Random(2) == 0 && next <= ringBytes - kRecordBytes)
        memset(ring + next, 0, kRecordBytes);
    header.EndFlag = flag;
    memcpy(ring + place_, &header, sizeof header);
    place_ = next;
    highestSerial_ = std::max(highestSerial_, serial_);
    serial_ = serial_ % kSerialLimit + (Random(16) == 0 ? Random(64) : 1);
}

void RingLiar::PutMark(uint8_t* ring, uint32_t flag)
{
    DataInfo header = Header();
    header.EndFlag = flag;
    memcpy(ring + place_, &header, sizeof header);
    place_ = 0;
}

void RingLiar::Spoil(uint8_t* ring, uint32_t ringBytes)
{
    const uint32_t place = Random(2) == 0 ? Random(ringBytes) : 0;
    const uint32_t bytes = std::min(Random(kRecordBytes), ringBytes - place);
    for (uint32_t i = 0; i < bytes; i++)
        ring[place + i] = static_cast<uint8_t>(random_() | kNoAudio);
}
