// What a camera says about itself: its login answer, system, storage and abilities.
#pragma once

#include <string>

#include "recorder/json.h"
#include "recorder/session.h"

// Logs in and asks for all of it. One object with the camera's own objects under "Login", "SystemInfo",
// "StorageInfo" and "Abilities"; an ability that the camera does not have is left out.
JsonPtr ReadDevice(Session& session);

// The same for people, in lines.
std::string DeviceText(const cJSON* device);
