// Alarm requests: a recorder subscribes its connection to the camera's alarms, and cancels that.
//
// Protocol reference: docs/protocol.md, "Alarms".
#pragma once

#include "protocol/request.h"

RequestHandler ProcessAlarmSubscribeReq;   // 1500 -> 1501
RequestHandler ProcessAlarmUnsubscribeReq; // 1502 -> 1503
