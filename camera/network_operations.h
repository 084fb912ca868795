// The camera's network identity: what the running system says of its interfaces, and the changes that go
// to the parameter host.
//
// Live values come from the kernel and from /proc and /etc; what cannot be learnt leaves the output as it
// was, with success. Thread-safe.
#pragma once

int Common_GetIPAddr(const void* interface, void* address);  // 2
int Common_SetIPAddr(const void* record, void* output);      // 3
int Common_SetDhcpStatue(const void* record, void* output);  // 5
int Common_GetHttpPort(const void* input, void* port);       // 6
int Common_SetHttpPort(const void* port, void* output);      // 7
int Common_GetMacAddr(const void* interface, void* mac);     // 10
int Common_GetNetmask(const void* interface, void* mask);    // 34
int Common_SetNetmask(const void* record, void* output);     // 35
int Common_GetDNS(const void* interface, void* server);      // 36
int Common_SetDNS(const void* record, void* output);         // 37
int Common_GetHostname(const void* input, void* name);       // 40
int Common_SetHostname(const void* name, void* output);      // 41
int Common_GetGateway(const void* interface, void* gateway); // 42
int Common_SetGateway(const void* record, void* output);     // 43
