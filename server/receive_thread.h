// Receive thread: serves every accepted connection with one select() loop. One read is one message
// (server/message_assembly.h names the exception), and its answer goes out in the same pass.
//
// Media connections are read too, and what comes is discarded. The buffers are reused for every
// message: a pass allocates nothing beyond what handlers allocate for JSON.
#pragma once

#include <cstdint>

#include "common/thread.h"
#include "server/message_assembly.h"

struct ReceiveBuffers {
    uint8_t request[kReadBytes + 1]; // ends in zero whatever was read
    uint8_t reply[kReplyBytes];
    HeldPart parts[kMaxConnections]; // one per slot; memory of a part is touched only when one is held
};

// Serves while the network run lasts, whose number is the argument; then removes every connection.
ThreadBody SendRecvSocketThread;

// One pass over all connections. They are held while it lasts, so that no number changes hands under a
// read or a send. Returns the pause that follows, in milliseconds.
uint32_t ReceivePass(ReceiveBuffers* buffers);

// Removes every connection in the table.
void RemoveAllConnections();
