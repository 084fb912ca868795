// Operations on the video streams: encoder settings, sizes and frame-rate caps.
//
// Getters return -1 without an output or a parameter block, setters without an input. A setter ignores
// the parameter host's results.
#pragma once

#include "camera/camera_access.h"
#include "camera/parameter_block.h"

CameraOperation Common_GetVideoEncoderConfig;   // 15: output VideoEncoderConfig
CameraOperation Common_SetResolution;           // 20: input StreamResolutionName
CameraOperation Common_SetVideoQuality;         // 22: input StreamValue
CameraOperation Common_SetFrameRate;            // 23: input StreamValue, frames a second
CameraOperation Common_SetBitRate;              // 24: input StreamValue, units of 1024 bit/s
CameraOperation Common_SetBitRateCtl;           // 25: input StreamValue, 0 CBR, 1 VBR
CameraOperation Common_SetIFrameInterval;       // 26: input StreamValue, frames
CameraOperation Common_GetResolutionsAvailable; // 59: input u32 stream 0 to 2, output ResolutionRecord
CameraOperation Common_GetEncodingScope;        // 100: output EncodingScope
CameraOperation Common_SetEncodingType;         // 101: input StreamValue, 2 H.264, 3 H.265, 4 MJPEG

inline constexpr int kCapByEncoding = -1; // mode: an MJPEG main stream lowers the cap
inline constexpr int kCapMjpeg = 3;       // mode: the lower cap in any case

// Frame-rate cap of a picture size, in frames a second.
int GetMaxFrameRate(const SysInfo* config, int width, int height, int mode);
