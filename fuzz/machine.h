// The machine around the server, for running its request path in one process: sockets, System V objects
// with their hosts, files, commands and clocks are functions of this file, put in by the linker. Nothing of
// the real machine is touched, nothing waits, and whatever the server does twice happens alike.
//
// One thread. What the server may never do (close a socket twice, write outside its slot of the data segment
// or into the parameter block, run a command) ends the program.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "camera/parameter_message.h"
#include "fuzz/wrapped.h"
#include "hosts/parameter_store.h"
#include "media/ring_layout.h"

// Ways in which the machine is at odds with the server; a set of them holds until it is replaced.
enum Fault : uint16_t {
    kLinkDown = 1 << 0,       // the wired interface has no link
    kNoInterface = 1 << 1,    // queries of an interface fail
    kNoFiles = 1 << 2,        // none of the files that the server reads is there
    kHostRefuses = 1 << 3,    // the parameter host answers -1
    kHostGone = 1 << 4,       // its queue was removed
    kHostDies = 1 << 5,       // its queue is removed between request and answer
    kEncoderSilent = 1 << 6,  // the encoder host does not answer
    kEncoderGone = 1 << 7,    // its queue was removed
    kEncoderFull = 1 << 8,    // its queue is full
    kPeersFull = 1 << 9,      // no socket is writable
    kPeersReset = 1 << 10,    // sends fail
    kSocketsUrgent = 1 << 11, // sockets are in an exceptional condition
    kNoSegment = 1 << 12,     // the data segment cannot be had
    kEncoderLies = 1 << 13,   // the encoder host answers with other orders' words
};

// The segments of the camera; the rooms of the blocks have some bytes more than the blocks.
enum SegmentPlace : uint8_t { kParameterBlock, kParameterData, kAlarmBlock, kKeeperBlock };

inline constexpr int kListenSocket = 100;
inline constexpr int kSearchSocket = 101;
inline constexpr int kFirstConnection = 102; // accepted sockets have the lowest free number from here on
inline constexpr int kLastConnection = 121;

inline constexpr int kOwnProcess = 7; // of the server, among the camera's

// What a read finds.
struct Offer {
    int fd = 0; // 0: nothing
    std::span<const uint8_t> bytes{};
    bool isError = false;
};

struct MachineState {
    uint16_t faults = 0;

    Offer offer;          // to the next read; readable until its bytes are taken
    bool hasPeer = false; // waits to be accepted
    bool isOpen[kLastConnection - kFirstConnection + 1] = {};
    bool isShut[kLastConnection - kFirstConnection + 1] = {};

    bool isAnswered = false; // by the parameter host
    ParameterMessage answer{};
    bool isOrdered = false; // of the encoder host
    ControlMessage order{};

    size_t jsonAllocations = 0; // that the server has not freed
};

extern MachineState g_machine;
extern std::optional<ParameterStore> g_store; // the parameter host's

inline bool Has(Fault fault)
{
    return (g_machine.faults & fault) != 0;
}

template <typename Result> Result Fail(Result result, int error)
{
    errno = error;
    return result;
}

// Attaches the server to the machine, once.
void StartMachine();
// The machine as it is after power-on: no connection, default parameters, no faults, the same time always.
void PowerOn();
// Lets go of everything that the machine allocated; no connection may be open.
void PowerOff();

bool IsReadable(int fd);
// Whether the socket was accepted and is not closed; and whether it was shut down meanwhile.
bool IsOpenConnection(int fd);
bool IsShutConnection(int fd);

// Whether the server has the thread now. While it has, what it writes to standard error goes nowhere,
// unless FUZZ_LOG is set.
void EnterServer(bool isServing);
bool IsSilent();
