// What the cameras of the soak film: two streams of numbered frames with sound, each byte of which follows
// from the stream, the kind and the number. A recorder that gets a frame can tell what it must be.
//
// Thread-safe: no state.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "bench/frame_pattern.h"
#include "media/media_layout.h"

inline constexpr uint32_t kSoakStreams = 2;
inline constexpr FramePattern kSoakPatterns[kSoakStreams] = {
    {.bitsPerSecond = 2'000'000, .gopFrames = 25},
    {.bitsPerSecond = 400'000, .gopFrames = 25},
};
inline constexpr uint32_t kSoundBytes = 320; // 40 ms of sound, two messages

std::vector<uint8_t> MakePicture(uint32_t stream, uint64_t number);
std::vector<uint8_t> MakeSound(uint32_t stream, uint64_t number);

// The number of a frame whose every byte is right; nothing for every other frame.
std::optional<uint64_t> CheckPicture(uint32_t stream, FrameKind kind, std::span<const uint8_t> payload);
std::optional<uint64_t> CheckSound(uint32_t stream, std::span<const uint8_t> payload);
