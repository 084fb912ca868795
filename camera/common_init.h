// Command 1: sets up logging, the parameter messages and the parameter block.
#pragma once

#include "camera/camera_access.h"

CameraOperation Common_Init; // 1: input the process kind (u32)
