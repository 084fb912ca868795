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
    uint32_t serial = 0; // 0: one more than the record before it
};

Frame MakeFrame(std::string_view start, size_t bytes, uint32_t serial = 0);
// A key frame, two others and an audio frame.
std::vector<Frame> MakeGop(size_t keyBytes = 5000);
