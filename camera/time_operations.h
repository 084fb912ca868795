// The camera's clock and its time zone.
//
// Setting the clock affects every process. A lock in the parameter block makes both setters do nothing.
#pragma once

// Returns -1 for a time that cannot be and for a stored time zone that does not exist, -7 without a
// parameter block.
int Common_SetDateTime(const void* time, void* output);    // 52
int Common_GetTimeZone(const void* input, void* index);    // 53
int Common_SetTimeZone(const void* setting, void* output); // 54
