// Loads and stores of little-endian fields at any alignment, for binary formats that are shared with
// other processes or machines. Every target of this program is little-endian itself.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

static_assert(std::endian::native == std::endian::little, "records travel as they lie in memory");

template <typename T> T LoadLe(const void* from)
{
    static_assert(std::is_trivially_copyable_v<T>);
    T value;
    memcpy(&value, from, sizeof value);
    return value;
}

template <typename T> void StoreLe(void* to, T value)
{
    static_assert(std::is_trivially_copyable_v<T>);
    memcpy(to, &value, sizeof value);
}
