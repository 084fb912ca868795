// What happens in the soak, round by round. A round depends on the seed and its number alone, so that a run
// can be made again: the times at which its steps fall may differ, their order and arguments do not.
//
// Thread-safe: no state.
#pragma once

#include <cstdint>
#include <cstdio>
#include <vector>

inline constexpr size_t kSoakRecorders = 2;

// What a recorder does. soak_recorder.cpp has the table of how.
enum class Operation : uint8_t {
    kLogIn,     // again, on new connections
    kWatchMain, // picture and sound
    kWatchSub,
    kPauseFlow, // stops and starts it on the same connections
    kStopWatching,
    kKeepAlive,
    kGetAll,
    kSet,
    kAbilities,
    kInquiries, // system, time, log, users, titles
    kPtz,
    kPreset,
    kAlarmsOn,
    kAlarmsOff,
    kKeyFrame,
    kSearch,
    kTalk,
    kGarbage,
    kGarbageDatagram,
    kCount,
};

enum class Fault : uint8_t {
    kNone,
    kParameterHostEnds,
    kMediaHostStops,
    kMediaHostDies,
    kAlarmSourceDies,
    kRecorderVanishes,
    kSlowReader,
    kConsole, // no fault, but there can be only one at a time
    kCount,
};

struct Step {
    Operation operation;
    uint32_t value;   // what the operation makes of it
    uint32_t pauseMs; // before it
};

struct Round {
    Fault fault;
    uint32_t faultDelayMs; // after the round's begin
    uint32_t faultMs;      // how long it lasts, where it does
    std::vector<Step> steps[kSoakRecorders];
};

Round PlanRound(uint64_t seed, uint64_t number);

const char* NameOf(Operation operation);
const char* NameOf(Fault fault);
void PrintRound(FILE* to, uint64_t number, const Round& round);
