// Operations that answer the same whatever the camera's settings are.
#pragma once

#include "camera/camera_access.h"

CameraOperation Common_Reserved;          // 19, 31, 32, 138: 0
CameraOperation Common_Cmd28;             // 28: sends the byte 0 as parameter field 4400
CameraOperation Common_GetChannelEnable;  // 30: output ChannelEnable
CameraOperation Common_Reserved51;        // 51: 0 with an input, else -1
CameraOperation Common_Reserved55;        // 55: 0 with an output, else -1
CameraOperation Common_GetTestVideoFrame; // 56: input u32 stream, output TestVideoFrame; -7 without the file
CameraOperation Common_GetPtzPresets;     // 61: output PtzPresetList
CameraOperation Common_Cmd63;             // 63: output u32, 1
CameraOperation Common_SetMobilePort;     // 89: 0 with an input, else -1
