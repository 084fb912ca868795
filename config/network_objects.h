// The network settings of the active interface.
#pragma once

#include "config/named_answer.h"
#include "config/set_config.h"

ObjectBuilder BuildNetCommon; // "NetWork.NetCommon"
ConfigApplier ApplyNetCommon;
ObjectBuilder BuildNetDHCP; // "NetWork.NetDHCP"
ConfigApplier ApplyNetDHCP;
ObjectBuilder BuildNetDNS;          // "NetWork.NetDNS"
extern const char kNetNTP[];        // "NetWork.NetNTP"
extern const char kOnlineUpgrade[]; // "NetWork.OnlineUpgrade"
