// A change of the encoding of all streams and of the sound: "Simplify.Encode.[0]".
#pragma once

#include "config/set_config.h"

ConfigApplier ApplySimplifyEncode;
