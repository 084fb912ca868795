// One attached ring, and the only reads and writes that readers make in it.
//
// The writer shares no lock with its readers: whatever is judged is copied first, byte by byte with
// atomic loads because records lie at any alignment, and never from outside the segment.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/sysv_ipc.h"
#include "media/ring_layout.h"

struct RingSegment {
    ShmAttachment attachment;
    int id = -1;
    size_t bytes = 0; // of the segment, at least those of the ring
};

// First bytes of a payload: a start code and the header of the NAL unit behind it.
struct PayloadStart {
    uint8_t byte[5];

    [[nodiscard]] bool hasStartCode() const
    {
        return byte[0] == 0 && byte[1] == 0 && byte[2] == 0 && byte[3] == 1;
    }
    [[nodiscard]] bool isJpeg() const { return byte[0] == 0xFF && byte[1] == 0xD8; }
    [[nodiscard]] uint8_t nalHeader() const { return byte[4]; }
};

// Attaches the stream's segment. Returns false when that fails or, with a log line, when the segment is
// smaller than its ring.
bool AttachRing(uint32_t index, RingSegment* ring);
// Looks the stream's key up again: what it names now is attached from now on. Returns its id, or -1.
int LookUpRing(uint32_t index);
// Does so and returns true when the key names another segment, which is now
// attached in place of the old one.
bool ReattachIfRecreated(uint32_t index, RingSegment* ring);

// Whether a record's header and so many payload bytes lie inside the segment.
bool IsInside(const RingSegment& ring, uint64_t position, uint64_t payloadBytes);

// Copies the header at a position that is inside. The end flag is read before and after the rest: one
// that changed meanwhile, from the last lap's say, makes the copy an unfinished record.
DataInfo CopyHeader(const RingSegment& ring, uint64_t position);
// Copies the payload's start of the record at the position. Returns false when it is not inside.
bool CopyPayloadStart(const RingSegment& ring, uint64_t position, PayloadStart* start);
// Stores a header at the start of the ring.
void StoreFirstHeader(const RingSegment& ring, const DataInfo& header);

// Whether the record in front of a payload in a ring is still that of the copy, after the payload was read:
// a host that was started anew may write another one of the same serial number and length over it, which is
// unfinished at first and has a time stamp of its own. The writer's own fields are not compared.
bool IsRecordUnchanged(const uint8_t* payload, const DataInfo& copy);
