// Media sender: one thread per live stream takes frames from the fan-out, cuts them into media
// messages and writes each to every connection that watches the stream.
//
// The send mutex is held while one message goes to all its receivers, the waits for a slow receiver
// included; the connection table's lock is not. Nothing is allocated per frame, and a frame is sent
// from where it lies: each message's header is written over bytes that have been sent already.
#pragma once

#include <cstddef>
#include <cstdint>

#include "media/media_layout.h"
#include "protocol/connection_table.h"
#include "protocol/message.h"

// A stream's buffer: room for the first message's header and sub-header, then the frame.
inline constexpr size_t kFrameOffset = 64;
inline constexpr size_t kMediaBufferBytes = kFrameOffset + kMainFrameBytes;
static_assert(kFrameOffset >= kHeaderBytes + sizeof(KeyFrameHeader));

// Runs until the video process stops.
void SendAVStreamThread(uint32_t stream);

// Takes the stream's next frame into the buffer and sends it. Returns 0 when it was sent or skipped,
// -1 when the video process stopped or no frame could be taken.
int PackAVFrame(uint32_t stream, uint8_t* buffer);

// Local date and time as the key frame's sub-header carries it.
void PackDateTime(uint32_t* word);

// Who gets a frame: the connections that watch its stream when its first message leaves. One that starts
// later begins with the next frame, one that stops gets the rest of this one. Each is held until the
// frame's end.
struct FrameReceivers {
    explicit FrameReceivers(uint32_t stream);
    ConnectionHold connections[kMaxConnections];
};

// Sends a message of the frame, header first, to each of its receivers under its own session id and
// sequence number. A receiver that fails, or blocks for too long, is removed.
void SendAVStream(const FrameReceivers& receivers, uint8_t* message, size_t length);
