#include "bench/soak_frames.h"

#include <algorithm>
#include <cstring>

namespace {

struct SoundPrefix {
    uint64_t ullStream;
    uint64_t ullNumber;
    uint64_t ullEpoch;
};

// The place of the pattern's time of publication holds the epoch and the stream.
FramePrefix PicturePrefix(uint32_t stream, const FrameMark& mark)
{
    return MakePrefix(kSoakPatterns[stream], mark.number,
                      static_cast<int64_t>(mark.epoch * kSoakStreams + stream));
}

} // namespace

std::vector<uint8_t> MakePicture(uint32_t stream, const FrameMark& mark)
{
    std::vector<uint8_t> picture(FrameBytes(kSoakPatterns[stream], mark.number));
    const FramePrefix prefix = PicturePrefix(stream, mark);
    memcpy(picture.data(), &prefix, sizeof prefix);
    memcpy(picture.data() + sizeof prefix, FrameTail(mark.number, sizeof prefix),
           picture.size() - sizeof prefix);
    return picture;
}

std::vector<uint8_t> MakeSound(uint32_t stream, const FrameMark& mark)
{
    std::vector<uint8_t> sound(kSoundBytes);
    const SoundPrefix prefix{.ullStream = stream, .ullNumber = mark.number, .ullEpoch = mark.epoch};
    memcpy(sound.data(), &prefix, sizeof prefix);
    memcpy(sound.data() + sizeof prefix, FrameTail(mark.number, sizeof prefix), sound.size() - sizeof prefix);
    return sound;
}

std::optional<FrameMark> CheckPicture(uint32_t stream, FrameKind kind, std::span<const uint8_t> payload)
{
    FramePrefix prefix{};
    if (payload.size() < sizeof prefix)
        return std::nullopt;
    memcpy(&prefix, payload.data(), sizeof prefix);
    const FrameMark mark{prefix.ullNumber, static_cast<uint64_t>(prefix.llPublishedNs) / kSoakStreams};
    const std::vector<uint8_t> expected = MakePicture(stream, mark);
    const bool isKey = IsKeyFrame(kSoakPatterns[stream], mark.number);
    return (kind == kKeyFrame) == isKey && std::ranges::equal(payload, expected) ? std::optional(mark)
                                                                                 : std::nullopt;
}

std::optional<FrameMark> CheckSound(uint32_t stream, std::span<const uint8_t> payload)
{
    SoundPrefix prefix{};
    if (payload.size() < sizeof prefix)
        return std::nullopt;
    memcpy(&prefix, payload.data(), sizeof prefix);
    const FrameMark mark{prefix.ullNumber, prefix.ullEpoch};
    return std::ranges::equal(payload, MakeSound(stream, mark)) ? std::optional(mark) : std::nullopt;
}
