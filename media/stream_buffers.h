// The frame slots of both live streams as the video process handles them when it starts and stops.
//
// Internal to the fan-out: frames go in and out through media/stream_fanout.h.
#pragma once

// Creates the stream locks, before which no frame goes in or out. Further calls do nothing.
void CreateStreamLocks();

// Clears the slots and everything that counts in them.
void EmptyStreamBuffers();

// Makes every producer and consumer that waits test its condition again.
void WakeStreamWaiters();

// The running flag of the video process, see IsVideoProcessRunning.
void SetVideoProcessRunning(bool isRunning);
