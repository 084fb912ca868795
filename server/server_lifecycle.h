// Server lifecycle: the banner, and the start and stop of everything that serves recorders.
//
// For one thread, the one that starts and stops the server.
#pragma once

#include <cstdint>

// Once per process: stores port and interface name ("eth0" when null) and prints the banner with them.
void ShowBanner(uint16_t port, const char* interfaceName);

// Starts the protocol server on the port, or on g_port_server when it is 0; does nothing while the
// server runs. Returns 0.
int VelmoraServerStart(uint16_t port);
// Stops what VelmoraServerStart started; a later start runs it all again.
void VelmoraServerStop();
// Stop, then start on the port. Returns 0.
int VelmoraServerRestart(uint16_t port);
