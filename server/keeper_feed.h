// Keeper feed: keeps this process's slot of the keeper block up to date, so that the firmware's keeper
// process sees that it lives.
//
// Used by the feed thread alone, once it runs.
#pragma once

#include <cstdint>

// Finds or creates the keeper block. Returns 0, also when that was done before, or -1 when the block
// cannot be used.
int libKeeperInit();

// Writes the present time into a slot of the block. Returns 0, or -1 when there is no such slot or the
// block cannot be used.
int KeeperDataWrite(uint32_t source);

// Starts the thread that writes this process's slot every 2 s.
void StartKeeperFeed();
