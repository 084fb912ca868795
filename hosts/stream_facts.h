// What a stream plays or is set to play, as it stands in the parameter block.
#pragma once

#include <cstdint>

#include "media/media_layout.h"

enum BitRateControl : uint8_t { kConstantBitRate = 0, kVariableBitRate = 1 };

struct StreamFacts {
    MediaCodec codec = kCodecH264; // a setting may be one that does not exist
    uint16_t usWidth = 0;
    uint16_t usHeight = 0;
    int32_t iFrameRate = 0;      // frames a second, rounded
    int32_t iBitRate = 0;        // bit/s
    int32_t iIFrameInterval = 0; // frames
    uint8_t ucBitRateControl = kConstantBitRate;

    bool operator==(const StreamFacts&) const = default;
};

// A recorder sets what it has read, and it reads bit rates in whole units of 1024 bit/s.
inline bool LooksTheSame(StreamFacts a, StreamFacts b)
{
    a.iBitRate /= 1024;
    b.iBitRate /= 1024;
    return a == b;
}
