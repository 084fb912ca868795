// Wrappers of the commands that move the camera. Same rules as in camera_commands.h.
#pragma once

#include "camera/camera_records.h"

int CameraControlPtz(PtzControl control);                                     // 60
int CameraSetPTZProperty(const PtzProperty* in);                              // 104
int CameraSetCruiseLineProperty(const CruiseLine* in);                        // 155
int CameraGetCruiseLineProperty(const CruiseLine* selector, CruiseLine* out); // 156
