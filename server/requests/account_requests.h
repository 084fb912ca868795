// Accounts, groups, rights and the channel's title: what recorders ask before they use a camera.
//
// The answers are fixed; changes are accepted and ignored. Who reads accounts, groups or rights receives
// alarms from then on. Any thread. Protocol reference: docs/protocol.md, "Accounts".
#pragma once

#include "protocol/request.h"

RequestHandler ProcessUserUsersReq;    // 1472 -> 1473
RequestHandler ProcessUserGroupReq;    // 1474 -> 1471
RequestHandler ProcessUserManageReq;   // 1470 -> 1471
RequestHandler ProcessUserSettingReq;  // 1482 -> 1483
RequestHandler ProcessGetChanTitleReq; // 1048 -> 1049
