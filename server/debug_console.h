// Debug console: one TCP client at a time sees what the process writes to standard output and standard
// error, which go to it alone while it is connected. What it sends is discarded.
//
// Nobody waits for the client: its socket does not block, what it cannot take is lost, and a client that
// takes nothing for 30 s is cut off. Writers are not paused while the descriptors are switched. Standard
// output should be unbuffered, or a line of one destination may appear at the other.
#pragma once

#include <cstdint>

// Ignores broken-pipe signals and opens the console on TCP port 414. Returns what SetupNetwork returns.
int StartDebugConsole();

// Opens the console on the port and starts its two threads, which never end. Once per process. Returns
// 0, or -1 when a step failed, which standard output then names.
int SetupNetwork(uint16_t port);
