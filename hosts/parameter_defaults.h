// What the parameter block holds before anybody changes anything, and how numbers are stored in it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "hosts/stream_facts.h"

// Clears the block (kSysConfigBytes) and writes the defaults of all fields.
void WriteDefaultParameters(uint8_t* block);
void WriteStreamFacts(uint8_t* block, size_t stream, const StreamFacts& facts);
StreamFacts ReadStreamFacts(const uint8_t* block, size_t stream);
// Stores the number in 1, 2 or 4 bytes.
void StoreNumber(uint8_t* to, uint8_t bytes, uint32_t value);
