// Frames for the rings: a start that tells the kind, then bytes of which no two frames have the same.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "media/ring_layout.h"

using namespace std::string_view_literals;

inline constexpr auto kKey264 = "\0\0\0\1\x67"sv; // SPS
inline constexpr auto kKey265 = "\0\0\0\1\x40"sv; // VPS
inline constexpr auto kDelta264 = "\0\0\0\1\x41"sv;
inline constexpr auto kDelta265 = "\0\0\0\1\x02"sv;
inline constexpr auto kJpeg = "\xFF\xD8\xFF\xE0\0"sv;
inline constexpr auto kAudio = "\xD5"sv;

struct Frame {
    uint32_t source = kSourceVideo;
    std::string bytes;
};

inline bool IsKeyFrame(const Frame& frame)
{
    return frame.bytes.starts_with(kKey264) || frame.bytes.starts_with(kKey265);
}

inline Frame MakeFrame(std::string_view start, size_t bytes)
{
    static uint32_t number = 0;
    Frame frame{start == kAudio ? kSourceAudio : kSourceVideo, std::string(start)};
    frame.bytes.reserve(bytes);
    for (uint32_t noise = ++number; frame.bytes.size() < bytes; noise = noise * 1664525 + 1013904223)
        frame.bytes.push_back(static_cast<char>(noise >> 24));
    return frame;
}

// A key frame, two others and an audio frame.
inline std::vector<Frame> MakeGop(size_t keyBytes = 5000)
{
    return {MakeFrame(kKey264, keyBytes), MakeFrame(kDelta264, 700), MakeFrame(kAudio, 320),
            MakeFrame(kDelta264, 90)};
}
