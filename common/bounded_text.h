// Bounded handling of texts that come from other processes: a fixed field without a terminating zero
// is as long as the field, and a copy always ends in zero.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

// Copies the text of a field of `fieldBytes` into `to`, cut to `size` - 1 characters; `size` is 1 or more.
inline void CopyBounded(char* to, size_t size, const void* field, size_t fieldBytes)
{
    size_t length = strnlen(static_cast<const char*>(field), fieldBytes);
    if (length > size - 1)
        length = size - 1;
    memcpy(to, field, length);
    to[length] = '\0';
}

// The number that the text begins with, 0 for none; one that 32 bits do not hold is their nearest.
inline int32_t ToNumber(const char* text)
{
    return static_cast<int32_t>(std::clamp(strtol(text, nullptr, 10), long{INT32_MIN}, long{INT32_MAX}));
}
