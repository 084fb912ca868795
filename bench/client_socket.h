// Blocking steps of setting up a benchmark's connection to the server under test on loopback. All throw
// std::runtime_error; a server that is still starting is waited for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "common/unique_fd.h"

UniqueFd ConnectTo(uint16_t port);

void SendAll(int fd, const void* data, size_t bytes);

void ReadExactly(int fd, uint8_t* to, size_t bytes);

// Reads up to and including `end`, which must come within `limit` bytes.
std::string ReadUpTo(int fd, const std::string& end, size_t limit);
