#include "bench/soak_frames.h"

#include <cstring>

namespace {

struct SoundPrefix {
    uint32_t ulStream;
    uint32_t ulReserved;
    uint64_t ullNumber;
};

} // namespace

std::vector<uint8_t> MakePicture(uint32_t stream, uint64_t number)
{
    const FramePattern& pattern = kSoakPatterns[stream];
    std::vector<uint8_t> picture(FrameBytes(pattern, number));
    const FramePrefix prefix = MakePrefix(pattern, number, stream);
    memcpy(picture.data(), &prefix, sizeof prefix);
    memcpy(picture.data() + sizeof prefix, FrameTail(number, sizeof prefix), picture.size() - sizeof prefix);
    return picture;
}

std::vector<uint8_t> MakeSound(uint32_t stream, uint64_t number)
{
    std::vector<uint8_t> sound(kSoundBytes);
    const SoundPrefix prefix{.ulStream = stream, .ulReserved = 0, .ullNumber = number};
    memcpy(sound.data(), &prefix, sizeof prefix);
    memcpy(sound.data() + sizeof prefix, FrameTail(number, sizeof prefix), sound.size() - sizeof prefix);
    return sound;
}

std::optional<uint64_t> CheckPicture(uint32_t stream, FrameKind kind, std::span<const uint8_t> payload)
{
    FramePrefix prefix{};
    if (payload.size() < sizeof prefix)
        return std::nullopt;
    memcpy(&prefix, payload.data(), sizeof prefix);
    const FramePattern& pattern = kSoakPatterns[stream];
    const FramePrefix expected = MakePrefix(pattern, prefix.ullNumber, stream);
    const bool same = memcmp(&prefix, &expected, sizeof prefix) == 0 &&
                      payload.size() == FrameBytes(pattern, prefix.ullNumber) &&
                      (kind == kKeyFrame) == IsKeyFrame(pattern, prefix.ullNumber) &&
                      memcmp(payload.data() + sizeof prefix, FrameTail(prefix.ullNumber, sizeof prefix),
                             payload.size() - sizeof prefix) == 0;
    return same ? std::optional(prefix.ullNumber) : std::nullopt;
}

std::optional<uint64_t> CheckSound(uint32_t stream, std::span<const uint8_t> payload)
{
    SoundPrefix prefix{};
    if (payload.size() != kSoundBytes)
        return std::nullopt;
    memcpy(&prefix, payload.data(), sizeof prefix);
    const std::vector<uint8_t> expected = MakeSound(stream, prefix.ullNumber);
    return memcmp(payload.data(), expected.data(), expected.size()) == 0 ? std::optional(prefix.ullNumber)
                                                                         : std::nullopt;
}
