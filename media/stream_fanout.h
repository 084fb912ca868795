// Stream fan-out: four frame slots per live stream between the ring reader, which must not wait for
// sockets, and the stream's sender.
//
// VideoCallbackFunc runs on the stream's reader thread, GetStreamFrame on its sender thread, one of
// each per stream; StartVideoProcess and StopVideoProcess on the thread that starts and stops the
// server. A frame is copied once in and once out; slots are allocated once and never resized. Lock
// order: stream lock, then a condition's mutex (docs/architecture.md, "Locks").
#pragma once

#include <cstddef>
#include <cstdint>

#include "media/ring_layout.h"

inline constexpr uint32_t kLiveStreams = 2; // MAX_STREAM_NUMS: 0 main, 1 second

// Frame of a stream from the ring reader: kind (AVSourceKind), stream, payload, payload bytes, and the
// reader's copy of the record header, which lies in the ring in front of the payload (null: the payload
// is no ring's and stands still). A frame whose ring record changed while it was copied is dropped. The
// payload is read only during the call. Waits for a free slot when the sender is slow. Returns 0 when
// the frame was stored, or dropped because nobody watches or it is too large; -1 for a stream of 2 or
// more and for missing data.
int VideoCallbackFunc(uint32_t kind, uint32_t stream, const uint8_t* data, int32_t length,
                      const DataInfo* header);

// Next frame of a stream. The destination holds the stream's slot capacity. Returns 0; -1 for a missing
// argument or when the video process stopped while waiting.
int GetStreamFrame(uint32_t stream, uint8_t* destination, int32_t* length, uint32_t* kind);

// Both return 0. A start after a stop is allowed.
int StartVideoProcess();
int StopVideoProcess();
// Whether the video process runs. Thread-safe.
bool IsVideoProcessRunning();
