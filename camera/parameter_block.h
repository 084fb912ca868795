// The parameter block: the camera's settings, attached once and read at the moment of each use.
//
// The parameter host changes the block while we read. Readers take no lock and read each field once; a
// field of up to 32 bits at its natural alignment is read whole. SysConfigInit and SysConfigExit belong
// to start-up, when nobody reads yet.
#pragma once

#include <cstddef>
#include <cstdint>

#include "camera/parameter_block_layout.h"
#include "common/bounded_text.h"
#include "common/little_endian.h"

struct SysInfo {
    uint8_t ucByte[kSysConfigBytes];
};

// Attaches the block, creating it empty when the parameter host has not yet; keeps the one it has.
// Returns 0, or -1 when there is no block or it is smaller than the layout (logged).
int SysConfigInit();
// Detaches the block.
void SysConfigExit();
// The block, or null while there is none.
const SysInfo* GetSysConfig();

// A field of the block; 0 beyond its end.
template <typename T> T BlockField(const SysInfo* config, size_t offset)
{
    return offset <= kSysConfigBytes - sizeof(T) ? LoadLe<T>(config->ucByte + offset) : T{};
}

// Copies a text field of the block, which may lack its zero, into `size` bytes with a zero.
inline void BlockText(const SysInfo* config, size_t offset, size_t fieldBytes, char* to, size_t size)
{
    if (offset <= kSysConfigBytes && fieldBytes <= kSysConfigBytes - offset)
        CopyBounded(to, size, config->ucByte + offset, fieldBytes);
    else
        to[0] = '\0';
}
