// Frame source: reads encoded frames of each live stream from the encoder host's ring in shared memory
// and hands every frame to a callback.
//
// One reader thread per client type and stream. The encoder host is trusted for nothing: no length or
// position of it leads outside the segment.
#pragma once

#include <cstdint>

#include "media/ring_layout.h"

enum FrameSourceError : int {
    kFrameSourceBadIndex = 102, // stream index or client type out of range
    kFrameSourceNoShm = 103,    // a ring's segment is missing
    kFrameSourceNoQueue = 104,  // the position queue is missing
    kFrameSourceNoBuffer = 106, // no message buffer
};

// A frame: AVSource, stream index, payload inside the shared segment, the reader's own copy of the
// record header. Called on the reader thread; everything is valid only during the call, and the writer
// may overwrite the payload meanwhile. The result is ignored.
using FrameCallback = int(uint32_t source, uint32_t stream, const uint8_t* payload, const DataInfo* header);
// 1 or more: the stream is on; 0 or less: it is off.
using StatusCallback = int(uint32_t stream);

int GetAVStreamInit(int32_t clientType, FrameCallback* frame, StatusCallback* status);
int GetVoiceTalkAVStreamInit(int32_t clientType, FrameCallback* frame, StatusCallback* status);
int GetAVControlInit();
int GetAVControlVoiceTalkInit();
int AVStreamStart(int32_t clientType, uint32_t index);
int AVStreamQuery(int32_t clientType, uint32_t index, uint32_t command, PositionMessage* message);
// Starts the readers of the main and second stream for the server.
int StartAVStream(int32_t clientType);
