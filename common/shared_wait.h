// Waits that share one timer, for threads that look for something every few milliseconds.
//
// Most of what an idle camera does is waking up to find that nothing has changed. Threads that wait here
// wake up together: one of them, the leader, sleeps for all, at most once in a millisecond, and makes the
// looks that are due for whoever waits for them. The others run again only when their look found something.
// When the leader's own look does, another thread leads.
//
// No look comes early. One may come up to a millisecond late, which is what makes those of different
// threads fall together.
#pragma once

#include <cstdint>

// Whether the wait is over. Runs on any of the waiting threads, one look at a time: it must neither wait nor
// call LookEvery, and may take only locks that no waiting thread holds.
using Look = bool(void* argument);

// Sleeps for the period (1 ms or more) and looks, until a look returns true or `most` of them were made
// (0: without end). Returns how many were made. Thread-safe.
uint32_t LookEvery(uint32_t periodMs, uint32_t most, Look* look, void* argument);
