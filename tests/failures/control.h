// What a test tells the failing server and hears from it: a file of the sandbox that both map. Counts go
// on across fork(), so that the calls of a child count, too.
#pragma once

#include <atomic>
#include <cstdint>

inline constexpr char kControlFile[] = "/sandbox/failures";
inline constexpr int kLeaked = 23; // exit status of a server that leaks

enum FallibleCall : int {
    kNoCall = -1,
#define CALL(name) kCall_##name,
#include "calls.inc" // made from calls.txt
#undef CALL
    kCalls
};

struct FailureControl {
    std::atomic<int> call; // the one that is to fail, or kNoCall
    std::atomic<int> left; // calls of it until then; set before `call`
    long result;           // what it returns
    int error;             // and its errno
    bool isMade;           // it does its work nevertheless
    std::atomic<bool> hasFailed;
    std::atomic<uintptr_t> caller;   // of the failed call, as an offset into the program
    std::atomic<bool> isUp;          // the entry thread has nothing more to start
    std::atomic<int> operationsDone; // how often SIGUSR1 was obeyed
    std::atomic<int> count[kCalls];
};
