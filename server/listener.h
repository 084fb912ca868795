// Listener: accepts TCP connections into the connection table.
#pragma once

#include <sys/time.h>

#include <cstdint>

#include "common/thread.h"

struct ListenerTask {
    uint32_t run; // the network run it belongs to
    int fd;       // the listening socket, which the listener closes at its end
};

// Accepts while the run lasts. The argument is a ListenerTask that outlives the thread.
ThreadBody ListenSocketThread;

// One round: waits for a connection and accepts it, unless the table is full. The time to wait is
// select()'s own record, which keeps what is left of it. Returns the pause that follows, in
// milliseconds.
uint32_t ListenerStep(int listenFd, timeval* timeout);
