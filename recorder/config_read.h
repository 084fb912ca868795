// Reads a camera's configuration objects.
#pragma once

#include <string>

#include "recorder/json.h"
#include "recorder/session.h"

// One object, as the camera sends it; kExitCameraError when it serves none of that name.
JsonPtr ReadConfig(Session& session, const std::string& name);

// One JSON object with every known object that the camera serves, each under its name, in the camera's
// order. What a reply carries beside its object follows under its own key.
JsonPtr ReadAllConfig(Session& session);
