// What must hold of the frames that leave a ring: each is one record as it stood, and the watchers' sockets
// get whole messages of it. The sender is run here, by the thread that reads the ring.
#pragma once

#include <cstdint>

#include "media/ring_layout.h"

// Forgets the last input, and lets two watchers join the stream.
void StartWatchers();
void SendWaitingFrames();
// A frame was delivered: progress, and the end of the input if it is an honest host's key frame.
void NoteFrame(const uint8_t* payload, const DataInfo& header);
void EndReader();
// The server looks at the ring, or for one, which it may do so often without a sleep or progress.
void NotePass();
// The server sleeps.
void NoteSleep(int64_t sleptUs);
