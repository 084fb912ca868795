// Parameter messages: every change of a camera setting is a request to the parameter host, which stores
// the value, updates the parameter block and answers.
//
// Any thread may send. The send lock is held across the wait for the answer, so one request of this
// process is outstanding at a time; without a parameter host a sender waits, and the others behind it.
// Queue and data segment are looked up again when they were removed, and never removed by this process.
// Answers to nobody are thrown away before each request. One with the code of another request, to which a
// former life of this process got no answer any more, is not taken for ours.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

// The number of this process in the exchange: 0 before SysDrvInit, 1 when the messaging is not set up.
extern std::atomic<int> gSysProcId;

// Sets up the messaging for process id 1 to 15; only ids 2 to 13 can send. Answers that an earlier life
// of this process left in the queue are thrown away. Returns 0 or -1 (reported on standard error).
int SysDrvInit(int processId);
// Returns 0.
int SysDrvExit();

// Sends one value (1 to 12288 bytes) as the parameter field and waits for the host's result. Returns -1
// without sending for a missing value, a field that is not accepted, a value that is too long and a
// process id without a data slot; 0 without sending for field 4403; else the host's result.
int32_t ControlSystemData(uint32_t field, const void* value, size_t length);

// The exchange behind it, by message code.
int32_t SendParameterMessage(int32_t code, const void* value, size_t length);
