// What a stream plays or is set to play, as it stands in the parameter block.
#pragma once

#include <algorithm>
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

// Whether the settings are those of the file, also when a recorder has read them and set them again: it
// reads bit rates in units of 1024 bit/s, and I-frame intervals as one to five whole seconds.
inline bool AreOfFile(StreamFacts settings, StreamFacts file)
{
    const int32_t seconds = std::clamp(file.iIFrameInterval / std::max(1, file.iFrameRate), 1, 5);
    if (settings.iIFrameInterval == seconds * file.iFrameRate)
        settings.iIFrameInterval = file.iIFrameInterval;
    settings.iBitRate /= 1024;
    file.iBitRate /= 1024;
    return settings == file;
}
