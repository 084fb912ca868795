// The device's identity and its storage.
//
// Any thread. Protocol reference: docs/protocol.md, "System information".
#pragma once

#include "protocol/request.h"

RequestHandler ProcessSysinfoReq; // 1020 -> 1021
