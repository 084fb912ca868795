// Bounded handling of texts that come from other processes: a fixed field without a terminating zero
// is as long as the field, and a copy always ends in zero.
#pragma once

#include <cstddef>
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
