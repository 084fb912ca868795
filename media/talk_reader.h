// Talk reader: walks the ring of talk audio, which a peer speaks into, at a steady pace.
//
// Its writer keeps neither magic nor serial numbers, so a record is new when its time stamp is later
// than the last one delivered. One thread per client type.
#pragma once

#include <cstdint>

#include "media/ring_reader.h"

struct TalkReader {
    RingReader place;
    uint32_t timeStamp; // of the last record delivered, at first the uptime in milliseconds
};

// One pass: attaches the ring, asks for a position, or judges the record at the present one.
void TalkReaderStep(TalkReader* reader);

// Thread body; the argument is a ReaderArgument. Runs while the reader's running flag is set.
void* AVStreamGetAudioTalkThread(void* argument);
