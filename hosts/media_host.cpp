#include "hosts/media_host.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <utility>

#include "common/log.h"

namespace {

constexpr char kName[] = "MediaHost";
constexpr size_t kOwnedRings = 3; // the talk ring belongs to whoever plays talk audio
constexpr const char* kStreamNames[kPlayedStreams] = {"main", "second"}; // of their moments

// One that follows the uptime, faster than any stream makes records, is above all that an earlier life of
// this program gave out.
uint32_t SerialOfUptime()
{
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    constexpr int64_t kSerialsPerSecond = 250;
    return static_cast<uint32_t>(now.tv_sec * kSerialsPerSecond +
                                 now.tv_nsec * kSerialsPerSecond / 1000000000);
}

// Serial number of the newest record of the lap that begins at offset 0, whoever wrote it; 0 when there is
// none.
uint32_t NewestSerial(const uint8_t* ring, uint32_t ringBytes)
{
    uint32_t newest = 0;
    for (uint32_t place = 0; place + kRecordBytes <= ringBytes;) {
        DataInfo header{};
        memcpy(&header, ring + place, sizeof header);
        const uint32_t room = ringBytes - place - kRecordBytes;
        if (header.AVDataCheck != kRecordMagic || header.EndFlag != kFlagFrame || header.AVDataLen < 0 ||
            static_cast<uint32_t>(header.AVDataLen) > room)
            break;
        newest = header.SerialNumber;
        place += kRecordBytes + static_cast<uint32_t>(header.AVDataLen);
    }
    return newest;
}

// Readers that outlive a host wait for a serial number above the last one they saw.
uint32_t FirstSerial(const uint8_t* ring, uint32_t ringBytes)
{
    return std::max(SerialOfUptime(), NewestSerial(ring, ringBytes) + 1);
}

std::vector<HostSegment> MakeRings()
{
    AdoptQueue(kName, kPositionQueueKey, kPositionQueueMode, kPositionRequestType);
    AdoptQueue(kName, kControlQueueKey, kControlQueueMode, kControlRequestType);
    std::vector<HostSegment> segments;
    for (size_t i = 0; i < kOwnedRings; ++i)
        segments.emplace_back(kName, kRings[i].key, kRings[i].ulSegmentBytes, kRingMode, Contents::kKeep);
    return segments;
}

} // namespace

MediaHost::MediaHost(Players players)
    : players_(std::move(players)), segments_(MakeRings()),
      positions_("MediaHost pos", "position", kPositionQueueKey, kPositionQueueMode, kPositionRequestType,
                 PositionMessage::kTextBytes, [this](QueueText& message) { return AnswerPosition(message); }),
      control_("MediaHost ctrl", "order", kControlQueueKey, kControlQueueMode, kControlRequestType,
               ControlMessage::kTextBytes, [this](QueueText& message) { return AnswerControl(message); })
{
    for (size_t i = 0; i < kOwnedRings; ++i) {
        uint8_t* const ring = segments_[i].get();
        const uint32_t firstSerial = FirstSerial(ring, kRings[i].ulRingBytes);
        memset(ring, 0, kRings[i].ulSegmentBytes);
        if (i < kPlayedStreams)
            rings_[i] =
                std::make_unique<RingWriter>(ring, kRings[i].ulRingBytes, firstSerial, kStreamNames[i]);
    }
}

void MediaHost::Film(Motors* head)
{
    for (const auto& player : players_)
        player->Film(head);
}

void MediaHost::Start(const ReportFunction& report)
{
    for (size_t i = 0; i < kPlayedStreams; ++i)
        players_[i]->Start(rings_[i].get(), [report, i](const StreamFacts& facts) { report(i, facts); });
    for (size_t i = 0; lies_ && i < kPlayedStreams; ++i)
        liars_[i] = std::make_unique<RingLiar>(
            rings_[i].get(), LiePlan{lies_->time, lies_->ulSeed + static_cast<uint32_t>(i)}, [this, i] {
                players_[i]->ForceKeyFrame();
                onTruth_(i);
            });
    positions_.Start();
    control_.Start();
}

void MediaHost::Lie(const LiePlan& plan, std::function<void(size_t stream)> onTruth)
{
    lies_ = plan;
    onTruth_ = std::move(onTruth);
}

void MediaHost::Stop()
{
    positions_.Stop();
    for (auto& liar : liars_)
        liar.reset();
    for (const auto& player : players_)
        player->Stop();
    control_.Stop();
}

void MediaHost::SetPaused(bool paused)
{
    for (const auto& player : players_)
        player->SetPaused(paused);
}

void MediaHost::Configure(size_t stream, const StreamFacts& settings)
{
    if (stream < kPlayedStreams)
        players_[stream]->Configure(settings);
}

void MediaHost::ShowTestPictures(bool always)
{
    for (const auto& player : players_)
        player->ShowTestPicture(always);
}

uint32_t MediaHost::Position(uint32_t stream, uint32_t command)
{
    const bool known = command == kQueryStart || command == kQueryKeyFrame || command == kQueryRecord ||
                       command == kQueryReserved;
    if (!known || stream >= kRingCount)
        LogWarn("%s: position asked with command 0x%x for stream %u, answered with 0\n", kName, command,
                stream);
    if (!known || stream >= kPlayedStreams)
        return 0;
    const uint32_t place = rings_[stream]->StartPlace();
    return liars_[stream] ? liars_[stream]->Place(place) : place;
}

std::optional<long> MediaHost::AnswerPosition(QueueText& message)
{
    const auto clientType = static_cast<int32_t>(message.word[kWordClientType]);
    if (clientType < kFirstClientType || clientType > kLastClientType) {
        LogWarn("%s: dropped a position request of client type %d, which does not exist\n", kName,
                clientType);
        return std::nullopt;
    }
    message.word[kWordResult] = Position(message.word[kWordStream], message.word[kWordCommand]);
    return clientType;
}

int32_t MediaHost::Control(uint32_t command, uint32_t argument)
{
    if (command == kCommandForceIFrame && argument < kPlayedStreams) {
        players_[argument]->ForceKeyFrame();
        return 0;
    }
    LogInfo("%s: the order 0x%x with argument %u is not served here\n", kName, command, argument);
    return -1;
}

std::optional<long> MediaHost::AnswerControl(QueueText& message)
{
    message.word[kControlWordResult] =
        static_cast<uint32_t>(Control(message.word[kControlWordCommand], message.word[kControlWordArgument]));
    return kControlReplyType;
}

void MediaHost::Release(bool always)
{
    bool remove = true;
    for (const HostSegment& segment : segments_)
        remove = remove && !segment.isAttachedByOthers();
    for (HostSegment& segment : segments_)
        segment.Release(always);
    if (remove || always) {
        RemoveQueue(kPositionQueueKey);
        RemoveQueue(kControlQueueKey);
    }
}

void PurgeMediaObjects()
{
    for (size_t i = 0; i < kOwnedRings; ++i)
        RemoveSegment(kRings[i].key);
    RemoveQueue(kPositionQueueKey);
    RemoveQueue(kControlQueueKey);
}
