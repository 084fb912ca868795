// A fuzz input that is read as it goes; behind its end are zeros.
#pragma once

#include <cstdint>

struct FuzzInput {
    const uint8_t* at = nullptr;
    const uint8_t* end = nullptr;

    [[nodiscard]] bool IsAtEnd() const { return at == end; }
    uint8_t Byte() { return IsAtEnd() ? uint8_t{0} : *at++; }
    uint32_t Word()
    {
        uint32_t word = 0;
        for (int shift = 0; shift < 32; shift += 8)
            word |= static_cast<uint32_t>(Byte()) << shift;
        return word;
    }
};
