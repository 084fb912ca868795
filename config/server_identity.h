// Who this server is: its TCP port, as the camera's protocol record gives it, and the network
// interface that is active.
#pragma once

#include <atomic>
#include <cstdint>

inline constexpr int kInterfaceNameBytes = 64; // with the terminating zero

// TCP port of the protocol server; 0 until set. Shared by all threads.
extern std::atomic<uint16_t> g_port_server;

// Reads the port of the protocol record, stores it in g_port_server if that is still 0, and returns it.
// Thread-safe.
uint16_t VelmoraGetServerPort();

// The interface name that the banner shows; "eth0" until set. A longer name is cut to 63 characters.
void SetInterfaceName(const char* name);

// "eth0" when its link is up, else "wlan0"; asks the kernel (ETHTOOL_GLINK) and stores the choice as
// the interface name. Thread-safe; the text is constant.
const char* ChooseActiveInterface();
// Copies the interface name into a buffer of kInterfaceNameBytes.
void GetInterfaceName(char* name);
