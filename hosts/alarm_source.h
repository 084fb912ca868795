// The alarm source: owns the alarm block, in which every source starts without an alarm.
#pragma once

#include "hosts/ipc_objects.h"

// Adopts or makes the block; throws std::runtime_error when it cannot.
HostSegment MakeAlarmBlock();
void PurgeAlarmBlock();
