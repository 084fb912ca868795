// Monitor requests: a recorder binds a media connection to its session and a stream (claim), and
// switches the flow of all media connections of its session (start, stop).
//
// Both always answer Ret 100. Protocol reference: docs/protocol.md, "Live view".
#pragma once

#include "protocol/request.h"

RequestHandler ProcessMonitorReq;   // 1410 -> 1411
RequestHandler ProcessMonitorClaim; // 1413 -> 1414

// The monitor-start flag: set by "Start", cleared by "Stop", and taken (read and cleared) by the first
// encode set that follows. One atomic word: thread-safe.
void SetMonitorStartFlag();
void ClearMonitorStartFlag();
bool TakeMonitorStartFlag();
