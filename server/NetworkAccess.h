// The network side of the server: the TCP listener, the receive thread that serves every connection,
// the idle detector that ends silent sessions, and the device search by UDP.
//
// Start and stop are for the thread that starts and stops the server. Register the message callback
// (server/network_state.h) first.
#pragma once

#include <cstdint>

// Creates the listening socket (port 0: none) and the search socket, and starts the threads. What fails is
// logged, and the server goes on without it. Returns 0.
int StartNetwork(uint16_t port);

// Ends the threads and removes every connection; waits for all but the idle detector, which ends by
// itself within 2 s. Does nothing when the network is stopped. Returns 0.
int StopNetwork();
