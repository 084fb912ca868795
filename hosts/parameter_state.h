// The parameter host's settings as a JSON file: one member per change, so that a person can read and
// edit it. Numbers are numbers, texts are texts, all other values "hex:" and their bytes.
//
// The file is replaced as a whole (written beside it, then renamed), so a crash leaves the old one.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <variant>
#include <vector>

using ParameterBytes = std::vector<uint8_t>;
using ParameterValue = std::variant<uint32_t, std::string, ParameterBytes>;
using ParameterChanges = std::map<std::string, ParameterValue>;

// Reads the file. A missing one gives no changes; one that is no JSON object is logged and moved aside as
// FILE.corrupt; single unusable members are logged and left out. Throws std::runtime_error for a file
// that may not be read or is no regular file.
ParameterChanges LoadParameterState(const std::string& path);
// Returns false when the file could not be written (logged).
bool SaveParameterState(const std::string& path, const ParameterChanges& changes);
