// "OPPTZControl": a recorder steers the camera, stores presets and edits tours.
//
// The answer is always Ret 100, whatever the camera does. Any thread; two tours edited at once are not
// kept apart, the last store wins. Protocol reference: docs/protocol.md, "PTZ".
#pragma once

#include "protocol/request.h"

RequestHandler ProcessOPPTZControlReq; // 1400 -> 1401
