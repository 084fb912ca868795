// Idle detector: ends a session when one of its connections has been silent for 30 s.
#pragma once

#include <cstdint>

#include "common/thread.h"

// Looks every 2 s while the network run lasts, whose number is the argument.
ThreadBody VLMFdDetecter;

// One look, at the given uptime in seconds. The connections that have not logged in share session 0:
// when one of them is silent, all of them go.
void IdleDetectorStep(uint32_t now);
