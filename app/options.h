// Command line of Velmora_server: Velmora_server [-p port] [-t type] [-i interface].
#pragma once

#include <cstdint>

#include "config/server_identity.h"

struct Options {
    uint16_t port;                           // -p; as it was before when not given
    int32_t clientType;                      // -t: under which the stream reader reads
    char interfaceName[kInterfaceNameBytes]; // -i, cut to 63 characters
};

// Reads the options, in any letter case and order, over the defaults that stand in `options`. What is
// no option is skipped. Returns false when an option lacks its value or the port is not 1 to 65535.
bool ParseOptions(int argc, char* const* argv, Options* options);

// Writes the usage line to the error log.
void LogUsage(const char* program);
