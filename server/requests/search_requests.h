// Device search and address setting: what a recorder's search page asks of cameras that it has no
// connection to. Both mostly come by UDP, where the answer is heard by everybody.
//
// The search tells the settings of the active network interface to whoever asks. The address setting is
// for the camera whose hardware address it names, and changes nothing on any other; every step that the
// request carries and that passes its test is taken, whatever becomes of the others. Always Ret 100.
// Protocol reference: docs/protocol.md, "Device search".
#pragma once

#include "protocol/request.h"

RequestHandler ProcessDevSearchReq;    // 1530 -> 1531
RequestHandler ProcessDevIpSettingReq; // 1532 -> 1533
