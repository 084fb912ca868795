#include "recorder/stress/media_checker.h"

#include <algorithm>
#include <functional>

namespace {

// How many frames the one who came later may have missed, and how many alike make a place.
constexpr size_t kMostMissed = 1000;
constexpr size_t kAlike = 20;

uint64_t Hash(const Frame& frame)
{
    const std::string_view bytes(reinterpret_cast<const char*>(frame.payload.data()), frame.payload.size());
    return std::hash<std::string_view>{}(bytes) + frame.kind;
}

size_t CountUnlike(std::span<const uint64_t> one, std::span<const uint64_t> other)
{
    const size_t length = std::min(one.size(), other.size());
    size_t unlike = 0;
    for (size_t i = 0; i < length; i++)
        unlike += one[i] != other[i] ? 1 : 0;
    return unlike;
}

// Where in `longer` the other one begins; the whole length when nowhere.
size_t FindStart(std::span<const uint64_t> longer, std::span<const uint64_t> late)
{
    const auto start = late.first(std::min(kAlike, late.size()));
    for (size_t at = 0; at < std::min(kMostMissed, longer.size()); at++)
        if (CountUnlike(longer.subspan(at), start) == 0)
            return at;
    return longer.size();
}

} // namespace

void MediaChecker::CheckHeader(const MessageHeader& header)
{
    const bool isMedia = header.usMessageId == kMediaData;
    const bool isRight = (isMedia || header.usMessageId == kAlarmInfo) && header.ulSessionId == session_ &&
                         header.ulSeqNum == nextSeqNum_ && header.ucReserved2[0] == (isMedia ? 1 : 0) &&
                         header.ucReserved2[1] == 0 && header.ucReserved12[0] == 0 &&
                         header.ucReserved12[1] == 0 && header.ulBodyLength > 0;
    faults_ += isRight ? 0 : 1;
    nextSeqNum_ = header.ulSeqNum + 1;
}

bool MediaChecker::TakeMedia(const Message& message)
{
    const std::optional<Frame> frame = assembler_.Add(message.header.ulSeqNum, message.body);
    if (frames_.empty() && !frame) {
        earlyDamaged_ = assembler_.counters().damaged;
        return false;
    }
    if (frame)
        frames_.push_back(Hash(*frame));
    else if (message.body.size() != kVideoBodyBytes && message.body.size() != kAudioBodyBytes)
        faults_++; // only full messages are continued
    return frame && frame->kind != kAudioFrame;
}

bool MediaChecker::Take(const Message& message)
{
    CheckHeader(message.header);
    if (message.header.usMessageId == kMediaData)
        return TakeMedia(message);
    assembler_.Skip(message.header.ulSeqNum);
    alarms_++;
    return false;
}

uint64_t CountDifferent(const std::vector<uint64_t>& one, const std::vector<uint64_t>& other)
{
    if (const size_t start = FindStart(one, other); start < one.size())
        return CountUnlike(std::span(one).subspan(start), other);
    if (const size_t start = FindStart(other, one); start < other.size())
        return CountUnlike(one, std::span(other).subspan(start));
    return std::min(one.size(), other.size()); // nowhere the same
}
