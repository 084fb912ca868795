// JSON that a user hands over.
#pragma once

#include <string>

#include "recorder/json.h"

// Reads a JSON file, "-" for standard input. Throws kExitLocal when it cannot be read, kExitUsage when it is
// not JSON.
JsonPtr ReadJsonFile(const std::string& path);
