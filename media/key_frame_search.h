// Search for a place at which a reader that lost its own can go on.
#pragma once

#include <cstdint>

#include "media/ring_segment.h"

// Asks the host for its newest key frame until the record there begins one (or is a JPEG picture) and
// is newer than the old serial number (0: any is), or until the reader's running flag is cleared. A
// ring that was created anew meanwhile is attached, and its serial numbers start afresh; so do those of a
// host that goes from one key frame to another without any newer one. Returns a position, or -1 when
// the host was not asked.
int32_t GetLastIFrame(RingSegment* ring, int32_t clientType, uint32_t index, uint32_t oldSerial);
