// A frame with bytes of its own, on its way from the network to a file.
#pragma once

#include <vector>

#include "recorder/deadline.h"
#include "recorder/frame_assembler.h"

struct StoredFrame {
    FrameKind kind;
    KeyFrameHeader header; // of the latest key frame
    std::vector<uint8_t> payload;
    TimePoint arrival; // of its last byte
};
