// Login and keepalive: a login makes its connection the command connection of a new session; a
// keepalive keeps it from falling silent.
//
// Every login is accepted; user name and password only go to the trace log. Both are answered with
// Ret 100 whatever the body holds. Protocol reference: docs/protocol.md, "Login and keepalive".
#pragma once

#include "protocol/request.h"

RequestHandler ProcessLoginReq;     // 1000 -> 1001
RequestHandler ProcessKeepaliveReq; // 1006 -> 1007
