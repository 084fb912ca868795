// Operations on audio and on motion detection.
#pragma once

#include "camera/camera_access.h"

CameraOperation Common_GetAudioConfig;               // 27: output AudioConfig
CameraOperation Common_GetAudioProperty;             // 80: output AudioProperty; the channel is left alone
CameraOperation Common_SetAudioProperty;             // 81: input AudioProperty
CameraOperation Common_SetAudioConfig;               // 127: input AudioConfig
CameraOperation Common_SetMotionDetectionExProperty; // 132: input MotionDetectionEx
CameraOperation Common_GetMotionDetectionExProperty; // 133: output MotionDetectionEx
