// What the network's threads share: whether they are to run, and whom they hand a message to.
//
// Thread-safe. Each start of the network is a run with a number of its own, so that a thread of an
// earlier run ends even if it looks only after the network was started again.
#pragma once

#include <cstdint>

#include "protocol/request.h"

// Begins a run and returns its number, 1 or more.
uint32_t BeginNetworkRun();
// Ends the present run; its threads leave their loops.
void EndNetworkRun();
bool IsNetworkRun(uint32_t run);

// The function that answers messages; none is dispatched while it is null.
void SetMessageCallback(RequestHandler* callback);
RequestHandler* GetMessageCallback();
