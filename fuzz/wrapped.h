// What the targets share of the machine around the server: shared memory, clock and threads, put in place of
// the C library's by the linker (fuzz/wrapped.cpp). One thread; sleeps take no time.
#pragma once

#include <sys/shm.h>
#include <sys/types.h>

#include <ctime>

#include <cstddef>
#include <cstdint>

#include "common/thread.h"

// Defines what the linker puts in place of a function; __real_NAME is the function itself.
#define WRAPPED(type, name, ...)                                                                             \
    extern "C" type __real_##name(__VA_ARGS__);                                                              \
    extern "C" type __wrap_##name(__VA_ARGS__);                                                              \
    extern "C" type __wrap_##name(__VA_ARGS__)

// Ends the program with a line that says what was violated.
[[noreturn]] void Violation(const char* what);

// A System V segment. Around its room lies memory that nobody may touch, on either side more than a 32-bit
// position reaches; the segment ends with the room.
struct Segment {
    int id;            // 0 or below: there is none
    size_t bytes;      // at most those of the room
    uint8_t* end;      // of the server's view
    uint8_t* hostsEnd; // of its owner's view, which can be written
    bool isAttached;

    [[nodiscard]] uint8_t* base() const { return end - bytes; }
    [[nodiscard]] uint8_t* hostsBase() const { return hostsEnd - bytes; }
};
inline constexpr int kMostSegments = 4;
extern Segment g_segments[kMostSegments];

// Gives the segment a room; the server may write into it or not.
void MakeRoom(Segment* segment, size_t bytes, bool isWritable);

extern int64_t g_nowUs;  // of all clocks but the wall clock
extern bool g_isServing; // the server has the thread, and the clock stands but for its sleeps

// What each target has of its own. The id that a key leads to, below 0 for none; and what happens while the
// server sleeps.
int IdOfKey(key_t key);
void AfterSleep(int64_t sleptUs);

// What libFuzzer and AddressSanitizer look for.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length);
extern "C" const char* __asan_default_options();
