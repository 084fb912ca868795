// A recorder's general device pages. Only the time zone is a setting of the camera.
#pragma once

#include "config/named_answer.h"
#include "config/set_config.h"

ObjectBuilder BuildCorrespondent; // "OEMcfg.Correspondent"
ObjectBuilder BuildTimeZone;      // "System.TimeZone"
ConfigApplier ApplyTimeZone;
extern const char kGeneralGeneral[];  // "General.General"
extern const char kGeneralLocation[]; // "General.Location"
extern const char kAutoMaintain[];    // "General.AutoMaintain"
extern const char kExUserMap[];       // "System.ExUserMap"
