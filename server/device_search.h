// Device search: recorders look for cameras by UDP, on a port of their own.
//
// One datagram is one message for the dispatcher, so any request may come this way, and its answer goes
// to everybody: to the limited broadcast address, whatever the sender's is, for a camera whose address
// belongs to another network must be found too. The route for it is the default route's.
//
// The socket is nobody's connection: its number stays open as long as its thread runs, so the connection
// table cannot hold the same one, and whatever a handler does to it there does nothing.
#pragma once

#include <cstdint>

#include "common/thread.h"
#include "common/unique_fd.h"

struct SearchTask {
    uint32_t run; // the network run it belongs to
    int fd;       // the search socket, which the thread closes at its end
};

// A datagram socket that may broadcast, bound to the search port on all addresses; empty when that
// fails, which the log then says.
UniqueFd CreateBroadcastSocket();

// Answers while the run lasts, ten datagrams a second at the most. The argument is a SearchTask that
// outlives the thread.
ThreadBody DevSearchThread;
