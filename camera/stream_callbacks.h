// Stream callbacks by type (command 57). Nobody is called from here: the table tells who registered.
#pragma once

#include "camera/camera_access.h"
#include "camera/camera_records.h"

inline constexpr uint32_t kStreamCallbackTypes = 9;       // 0 to 8
inline constexpr uint32_t kIgnoredStreamCallbackType = 9; // accepted, but has no place

CameraOperation Common_SetStreamCallback; // 57: input StreamRegistration; -1 for a type above 9

// Callback registered under the type, or null. Thread-safe.
StreamCallback* GetStreamCallback(uint32_t type);
