// Wrappers of the commands that act on the camera as a whole: network, clock, accounts, system. Same
// rules as in camera_commands.h.
//
// Interface names are "eth0" and "wlan0". Texts that a getter fills: addresses have at least 16 bytes,
// the MAC kMacTextBytes, the host name 65; callers zero them first, for a getter that learns nothing
// leaves them as they are.
#pragma once

#include <cstdint>

#include "camera/camera_records.h"

int CameraGetIPAddr(const char* interface, char* address);  // 2
int CameraSetIPAddr(const InterfaceAddress* in);            // 3
int CameraSetDhcpStatue(const DhcpStatue* in);              // 5
int CameraGetHttpPort(uint16_t* out);                       // 6
int CameraSetHttpPort(uint16_t port);                       // 7
int CameraGetMacAddr(const char* interface, char* mac);     // 10
int CameraGetDeviceInformation(DeviceInformation* out);     // 11
int CameraGetNetmask(const char* interface, char* mask);    // 34
int CameraSetNetmask(const InterfaceAddress* in);           // 35
int CameraGetDNS(const char* interface, char* server);      // 36
int CameraSetDNS(const InterfaceAddress* in);               // 37
int CameraGetHostname(char* name);                          // 40
int CameraSetHostname(const char* name);                    // 41
int CameraGetGateway(const char* interface, char* gateway); // 42
int CameraSetGateway(const InterfaceAddress* in);           // 43
int CameraGetUsers(UserList* out);                          // 44
int CameraCreateUser(const UserList* in);                   // 45
int CameraSetUser(const UserList* in);                      // 46
int CameraDelUser(const UserList* in);                      // 47
int CameraReboot();                                         // 48
int CameraFactoryDefault(uint32_t mode);                    // 49
int CameraUpgrade(const void* in);                          // 50
int CameraSetDateTime(CameraDateTime time);                 // 52
int CameraGetTimeZone(uint8_t* out);                        // 53
int CameraSetTimeZone(uint32_t flag, uint32_t index);       // 54
