// Encoder control: orders to the encoder host, each answered with a result (docs/ipc.md, "Control
// queue").
//
// Thread-safe: one lock is held for a whole exchange, because every answer of the host has the same type.
// An exchange lasts a second at most, whatever the host does. Answers that came too late for an earlier
// order are thrown away, and so is one that names another order than the one it would answer.
#pragma once

#include <cstdint>

#include "media/encoder_commands.h"

// Each order returns the host's result; 0 when the host gave none in time (logged), 102 for an order that
// cannot be written and 104 when there is no queue. Only a result of the host shows that it was carried out.

// Opens the queue, or creates it. Returns 0, at once when it is open already, or 104.
int MediaHostCtrlInit();
// Gives the order of any command code but the one with a payload; a command that takes no number ignores it.
int MediaHostRequest(uint32_t command, int32_t argument = 0);
// Command 0x6605: the payload is 16 bytes.
int MediaHostPayloadRequest(const uint8_t* payload);
// Command 0x2010: the stream's (0 main, 1 second) next frame is to be a key frame.
int MediaHostVideoForceIFrame(int32_t stream);
