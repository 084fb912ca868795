// One picture from a camera as a PNG file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "recorder/live_view.h"
#include "recorder/video_format.h"

struct Picture {
    VideoFormat format;
    std::vector<uint8_t> png;
};

// Decodes a key frame. Throws kExitLocal when it holds no picture that can be decoded.
Picture DecodePicture(const KeyFrameHeader& header, std::span<const uint8_t> payload);

// Takes the first key frame of the stream and decodes it. Throws Failure.
Picture TakeSnapshot(const HostPort& address, const Stream& stream, milliseconds timeout);
