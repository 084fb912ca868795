// Key-frame request: a recorder that has just begun to watch asks for a picture to start with. Both live
// streams get a key frame.
//
// The answer waits for the encoder host, a second for each stream at most, and does not tell whether it
// did its part. Protocol reference: docs/protocol.md, "Key frames".
#pragma once

#include "protocol/request.h"

RequestHandler ProcessForceIFrameReq; // 1562 -> 1501
