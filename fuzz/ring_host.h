// An encoder host that lies, as the input of the ring target says: at each sleep of the server it takes a
// turn, which is one record, one broken promise or one segment; each request it answers rightly or in one of
// the ways to get it wrong. Where the input ends, it turns honest.
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "fuzz/wrapped.h"

using Bytes = std::vector<uint8_t>;

struct Answer {
    int queue;
    long type;
    Bytes text;
};

struct RingHost {
    Segment* segment; // the present one
    uint32_t place;   // of its next record
    uint32_t serial = 1;
    uint32_t newestKey;
    uint32_t frames;            // that it has written since it is honest
    int64_t honestSinceMs = -1; // -1: it lies
    int64_t nextFrameMs;
    std::deque<Answer> answers;
    bool isQueueGone;
};
extern RingHost g_host;
extern FuzzInput g_input;
extern uint32_t g_stream; // that is read
extern uint32_t g_readAt; // where the server looked last

inline constexpr uint8_t kKeyFrameStart[] = {0, 0, 0, 1, 0x67};

inline int64_t NowMs()
{
    return g_nowUs / 1000;
}
inline bool IsHonest()
{
    return g_host.honestSinceMs >= 0;
}
// What the input says next; of an honest host 0, which is right and whole everywhere.
inline uint8_t Lie()
{
    return IsHonest() ? uint8_t{0} : g_input.Byte();
}

void MakeRooms();
bool IsInRooms(const void* address);
// A new host with an empty ring, whose size the input says.
void StartHost();
void TakeTurn();
// Starts the host anew, as a host should: its ring cleared, its first frame a key frame.
void TurnHonest();
// Writes what an honest host has written by now.
void WriteHonestFrames();

// Turns that the host does not take alone.
void ChangeLag(uint8_t frames);
void ChangeWatcher(uint8_t watcher);
