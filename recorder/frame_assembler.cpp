#include "recorder/frame_assembler.h"

#include "common/little_endian.h"

namespace {

struct SubHeader {
    FrameKind kind;
    size_t bytes;       // of the sub-header itself
    size_t frameLength; // announced
};

// Where each kind of sub-header keeps the frame's length.
std::optional<SubHeader> ReadSubHeader(std::span<const uint8_t> body)
{
    if (body.size() < sizeof(uint32_t))
        return std::nullopt;
    const auto kind = LoadLe<uint32_t>(body.data());
    if (kind == kKeyFrame && body.size() >= sizeof(KeyFrameHeader))
        return SubHeader{kKeyFrame, sizeof(KeyFrameHeader), LoadLe<KeyFrameHeader>(body.data()).ulLength};
    if (kind == kOtherFrame && body.size() >= sizeof(OtherFrameHeader))
        return SubHeader{kOtherFrame, sizeof(OtherFrameHeader),
                         LoadLe<OtherFrameHeader>(body.data()).ulLength};
    if (kind == kAudioFrame && body.size() >= sizeof(AudioFrameHeader))
        return SubHeader{kAudioFrame, sizeof(AudioFrameHeader),
                         LoadLe<AudioFrameHeader>(body.data()).usLength};
    return std::nullopt;
}

} // namespace

std::optional<Frame> FrameAssembler::Add(uint32_t seqNum, std::span<const uint8_t> body)
{
    Skip(seqNum);
    if (!StartFrame(body) && !ContinueFrame(body)) {
        LosePlace();
        return std::nullopt;
    }
    if (frame_.size() < frameBytes_)
        return std::nullopt;
    frameBytes_ = 0;
    return Frame{kind_, frame_, header_};
}

// A missing message takes the frame that is under way with it.
void FrameAssembler::Skip(uint32_t seqNum)
{
    const uint32_t missing = seqNum - expectedSeqNum_;
    expectedSeqNum_ = seqNum + 1;
    if (missing == 0)
        return;
    counters_.gaps++;
    if (missing < 0x80000000) // else the numbers went back, and nobody can say how many are missing
        counters_.lostMessages += missing;
    if (frameBytes_ != 0)
        LosePlace();
}

bool FrameAssembler::StartFrame(std::span<const uint8_t> body)
{
    const auto sub = ReadSubHeader(body);
    if (!sub || sub->frameLength == 0 || sub->frameLength > maxFrameBytes_ ||
        body.size() - sub->bytes > sub->frameLength)
        return false;
    if (frameBytes_ != 0)
        LosePlace();
    lost_ = false;
    kind_ = sub->kind;
    frameBytes_ = sub->frameLength;
    if (kind_ == kKeyFrame)
        header_ = LoadLe<KeyFrameHeader>(body.data());
    frame_.assign(body.begin() + static_cast<std::ptrdiff_t>(sub->bytes), body.end());
    return true;
}

bool FrameAssembler::ContinueFrame(std::span<const uint8_t> body)
{
    if (frameBytes_ == 0 || body.empty() || body.size() > frameBytes_ - frame_.size())
        return false;
    frame_.insert(frame_.end(), body.begin(), body.end());
    return true;
}

void FrameAssembler::LosePlace()
{
    if (!lost_)
        counters_.damaged++;
    lost_ = true;
    frameBytes_ = 0;
}
