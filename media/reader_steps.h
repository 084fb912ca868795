// What the video and the talk reader do alike. Each takes the name of the thread for which it logs.
#pragma once

#include <cstdint>

#include "media/ring_reader.h"

// Checks a thread's argument. Returns false, with a log line, when the thread has nothing to read.
bool IsReadable(const char* thread, const ReaderArgument& argument);

// Attaches the ring unless it is attached. Returns false, after a sleep, when that fails.
bool AttachStep(const char* thread, uint32_t retryMs, RingReader* reader);

// Asks the host until it gives a position to start from.
void AskStartPosition(const char* thread, uint32_t retryMs, RingReader* reader);

// True, after a sleep, when no record can begin at the position, which is then unknown.
bool CheckOutOfPos(RingReader* reader);

// Marks the ring's start with the pause record just read, so that the reader can wait there.
void StorePauseMark(const RingReader& reader);

// Sleeps.
void Rest(RingReader* reader, uint32_t milliseconds);

// Sleeps where the writer alone can end the wait. A ring that was created anew meanwhile is attached; the
// reader then knows no place in it yet.
void WaitInPlace(RingReader* reader, uint32_t milliseconds);
