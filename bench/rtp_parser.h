// Takes the bytes of one RTSP connection apart whose H.264 stream comes interleaved, and checks every byte of
// the frames, as MediaParser does for the recorder protocol.
//
// One parser per connection, used by one thread. It sees the stream in whatever pieces reads return.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "bench/frame_pattern.h"
#include "bench/frame_receiver.h"

struct RtpParser {
    const FramePattern* pattern;

    uint64_t damaged = 0; // packets that are missing or wrong, and frames that are not what was sent
    std::vector<ReceivedFrame> frames = {};

    std::vector<uint8_t> unit = {}; // the interleaved packet or the reply being received
    bool isSequenceKnown = false;
    uint16_t nextSequence = 0;

    // The frame being received
    bool intact = true;
    uint32_t position = 4; // behind the length, which is not sent
    FramePrefix prefix = {};
};

// Takes `bytes` bytes that were read at `nowNs`. Whole, undamaged frames are appended to `frames`.
void ParseRtp(RtpParser& parser, const uint8_t* data, size_t bytes, int64_t nowNs);
