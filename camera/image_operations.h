// Operations on the camera image: brightness and its neighbours, one byte each.
#pragma once

#include "camera/camera_access.h"

CameraOperation Common_GetImageConfig; // 17: output ImageConfig; bytes 14 and 24 are left alone
CameraOperation Common_SetImageConfig; // 18: input ImageConfig
