// Picture sizes as recorders name them, and the bits that stand for the names in a "ResolutionMask".
#pragma once

#include <cstdint>

// The protocol's name of a size; null for the few sizes that have none.
const char* GetResolutionName(int32_t width, int32_t height);

// 0 when the stream lists a size of this name, else -1. The third stream (2) takes any name; a null
// name is never supported.
int IsResolutionSupported(int32_t stream, const char* name);

// The mask of the sizes that the stream lists.
uint32_t ResolutionCombo(int32_t stream);
