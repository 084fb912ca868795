// The camera's network settings as recorders read and set them, whether by a configuration object or by
// the device search.
//
// All values are those of one interface, "eth0" or "wlan0". Any thread; what fails is not reported.
#pragma once

#include <cstdint>

#include "camera/camera_records.h"
#include "config/network_text.h"
#include "protocol/json_fields.h"
#include "protocol/reply_text.h"

// What a getter cannot learn stays empty.
struct NetworkFacts {
    char gateway[kAddressTextBytes];
    char address[kAddressTextBytes];
    char mask[kAddressTextBytes];
    char mac[kMacTextBytes];
    char hostName[65];
    uint16_t usHttpPort;
    uint16_t usServerPort; // of the protocol's record, which the running server may have been told to ignore
};
void GetNetworkFacts(const char* interface, NetworkFacts* facts);

// A dotted address as it travels: "0x%08X".
JsonValue AddressValue(const char* dotted);

// Whether recorders may set this HTTP port: 80, or 1025 to 65534.
bool IsHttpPort(int port);

// Sets what the request carries under the key; a member that is missing or no text is skipped.
using AddressSetter = int(const InterfaceAddress* in);
void SetAddressMember(AddressSetter* set, const char* interface, const cJSON* object, const char* key);
// The same for "HostName", which must be a valid name or address.
void SetHostNameMember(const cJSON* object);
// Sets the server's port for its next start to "TCPPort". Not examined: a number that does not fit loses its
// upper bits, and a missing one becomes 65535.
void SetServerPortMember(const cJSON* object);
