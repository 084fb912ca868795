#include "tests/e2e/harness/frames.h"

Frame MakeFrame(std::string_view start, size_t bytes, uint32_t serial)
{
    static uint32_t number = 0;
    Frame frame{start == kAudio ? kSourceAudio : kSourceVideo, std::string(start), serial};
    frame.bytes.reserve(bytes);
    for (uint32_t noise = ++number; frame.bytes.size() < bytes; noise = noise * 1664525 + 1013904223)
        frame.bytes.push_back(static_cast<char>(noise >> 24));
    return frame;
}

std::vector<Frame> MakeGop(size_t keyBytes)
{
    return {MakeFrame(kKey264, keyBytes), MakeFrame(kDelta264, 700), MakeFrame(kAudio, 320),
            MakeFrame(kDelta264, 90)};
}
