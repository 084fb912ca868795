// Message assembly: keeps the first part of a request that TCP delivered in several reads until the
// rest is there, for at most 200 ms.
//
// Belongs to the receive thread. A held part also holds its connection, so that the socket's number
// names the same connection when the rest arrives. Only a read that begins like a message of ours and
// announces more body than came is held; everything else is one message as it is.
#pragma once

#include <cstddef>
#include <cstdint>

#include "protocol/connection_table.h"
#include "protocol/message.h"

inline constexpr int64_t kHoldMs = 200; // from the first part

struct HeldPart {
    ConnectionHold connection;
    int length = 0;    // bytes so far; 0: nothing is held
    int announced = 0; // bytes of the whole message
    int64_t dueMs = 0; // MonotonicMs() at which it is handled as it is
    uint8_t bytes[kReadBytes + 1];

    [[nodiscard]] bool isHeld() const { return length > 0; }
    [[nodiscard]] bool isComplete() const { return length == announced; }
};

// Whether the bytes of one read are the first part of a message.
bool IsFirstPart(const uint8_t* bytes, int length);

// Holds a first part that came on the connection in the slot. Nothing is held when the connection has
// been removed meanwhile.
void HoldPart(HeldPart* part, int slot, int fd, const uint8_t* bytes, int length, int64_t nowMs);

// Adds what came next; bytes beyond the announced length are ignored.
void AppendToPart(HeldPart* part, const uint8_t* bytes, int length);

// Lets the part and its connection go.
void DropPart(HeldPart* part);
