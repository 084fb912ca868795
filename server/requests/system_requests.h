// The camera's clock, its reboot and factory default, and its log.
//
// Every answer is Ret 100, whatever the camera does with the request; the log is answered without entries.
// Any thread. Protocol reference: docs/protocol.md, "Time and system".
#pragma once

#include "protocol/request.h"

RequestHandler ProcessTimeQueryReq;   // 1452 -> 1453
RequestHandler ProcessTimeSettingReq; // 1590 -> 1591
RequestHandler ProcessSysManagerReq;  // 1450 -> 1451
RequestHandler ProcessOPLogQueryReq;  // 1442 -> 1443
