// Operations on the agreement table: the camera's network services, their ports and switches.
#pragma once

#include "camera/camera_access.h"

CameraOperation Common_SetArgeementProperty; // 107: input AgreementEntry
// 108: input an AgreementEntry that selects the service, output one entry, or seven for all services.
// A selector that names no service fills nothing.
CameraOperation Common_GetArgeementProperty;
