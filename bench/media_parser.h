// Takes the bytes of one media connection apart into frames and checks every byte of them.
//
// One parser per connection, used by one thread. It sees the stream in whatever pieces reads return.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "bench/frame_pattern.h"
#include "bench/frame_receiver.h"
#include "protocol/message.h"

struct MediaParser {
    const FramePattern* pattern;
    uint32_t session; // that every media message must carry

    uint64_t damaged = 0; // frames and messages that are not what was published
    std::vector<ReceivedFrame> frames = {};

    // The message being received
    uint8_t headerBytes[kHeaderBytes] = {};
    size_t headerFill = 0;
    MessageHeader header = {};
    uint32_t bodyLeft = 0;
    uint32_t nextSequence = 0;

    // The frame being received
    uint8_t subHeader[16] = {};
    size_t subHeaderFill = 0;
    bool inFrame = false;
    bool intact = true;
    uint32_t length = 0;
    uint32_t position = 0;
    uint8_t prefixBytes[sizeof(FramePrefix)] = {};
    FramePrefix prefix = {};
};

// Takes `bytes` bytes that were read at `nowNs`. Whole, undamaged frames are appended to `frames`.
void ParseMedia(MediaParser& parser, const uint8_t* data, size_t bytes, int64_t nowNs);
