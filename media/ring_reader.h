// Ring reader: walks a stream's ring record by record, waits where nothing new lies yet, keeps its
// place across wraps and pauses, and finds it again at the newest key frame when it was lost.
//
// One thread per client type and stream. ReaderStep is one pass of its loop and touches nothing but
// the reader's own record, the ring and the host's answers. Nothing is allocated after the start.
#pragma once

#include <cstdint>

#include "media/ring_layout.h"
#include "media/ring_segment.h"

inline constexpr int32_t kUnknownPosition = -1;

struct ReaderArgument {
    int32_t clientType;
    uint32_t index;
};

// State of a reader's loop.
struct RingReader {
    int32_t clientType;
    uint32_t index;
    RingSegment ring{};
    int32_t VideoPos = kUnknownPosition;
    uint32_t lastSerial = 0; // last one delivered, 0: none
    bool isPauseMarked = false;
    uint32_t statusFailures = 0;
    uint32_t magicFailures = 0;
    uint32_t unknownFlagWaits = 0;
    uint32_t olderSerialWaits = 0;
    uint32_t largeGaps = 0;
    uint32_t restlessPasses = 0; // passes in a row without progress or a sleep
    DataInfo header{};           // copy of the record's header at VideoPos
};

// One pass: attaches the ring, asks for a position, or judges the record at the present one.
void ReaderStep(RingReader* reader);

// Thread body; the argument is a ReaderArgument. Runs while the reader's running flag is set.
void* AVStreamGetAVDataThread(void* argument);
