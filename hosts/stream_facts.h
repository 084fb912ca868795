// What a stream plays, as the parameter block reports it.
#pragma once

#include <cstdint>

#include "media/media_layout.h"

struct StreamFacts {
    MediaCodec codec = kCodecH264;
    uint16_t usWidth = 0;
    uint16_t usHeight = 0;
    int32_t iFrameRate = 0;      // frames a second, rounded
    int32_t iBitRate = 0;        // bit/s
    int32_t iIFrameInterval = 0; // frames
};
