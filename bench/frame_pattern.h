// The synthetic video of the benchmark: how large each frame is, and what its bytes are, so that a
// watcher can tell a whole frame from a damaged one without keeping a copy.
//
// Thread-safe: no state but a table that is made once.
#pragma once

#include <cstddef>
#include <cstdint>

struct FramePattern {
    uint32_t bitsPerSecond;
    uint32_t framesPerSecond = 25;
    uint32_t gopFrames = 50;    // frames from one key frame to the next
    uint32_t keyFrameRatio = 5; // a key frame is this many times the mean other frame
};

bool IsKeyFrame(const FramePattern& pattern, uint64_t number);

// Bytes of a frame, a multiple of four: key frames all alike, other frames between 0.6 and 1.4 of their
// mean. Every group of pictures has the bytes that the rate gives it.
uint32_t FrameBytes(const FramePattern& pattern, uint64_t number);

// The first bytes of every frame; what follows depends on nothing but the number.
struct FramePrefix {
    uint8_t ucNal[8]; // start code, H.265 NAL header (VPS or slice), two bytes more
    uint64_t ullNumber;
    int64_t llPublishedNs; // CLOCK_MONOTONIC
};
static_assert(sizeof(FramePrefix) == 24);

FramePrefix MakePrefix(const FramePattern& pattern, uint64_t number, int64_t publishedNs);

// The same bytes for an H.264 decoder that expects NAL units behind their length instead of a start code.
FramePrefix MakeH264Prefix(const FramePattern& pattern, uint64_t number, int64_t publishedNs);

// What a frame holds from `offset` (at least 24) on, up to the largest frame there is.
const uint8_t* FrameTail(uint64_t number, size_t offset);

// When each frame is due. A sensor's clock is not the processor's: frames come at every phase of a
// millisecond, evenly (steps of the golden ratio), so that no program is lucky with where its looks for them
// lie.
struct FrameClock {
    int64_t startNs; // frame 0, on CLOCK_MONOTONIC
    uint32_t framesPerSecond;

    [[nodiscard]] int64_t DueNs(uint64_t number) const
    {
        return startNs +
               static_cast<int64_t>(number * 1000000000 / framesPerSecond + number * 618034 % 1000000);
    }
};

int64_t MonotonicNs();
void SleepUntilNs(int64_t monotonicNs);
