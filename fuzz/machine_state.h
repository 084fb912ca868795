// What the functions that stand for the machine share; only they and fuzz/machine.cpp use it.
#pragma once

#include <cerrno>
#include <cstdint>
#include <optional>
#include <span>

#include "camera/parameter_message.h"
#include "fuzz/machine.h"
#include "fuzz/wrapped.h"
#include "hosts/parameter_store.h"
#include "media/ring_layout.h"

inline constexpr int kOwnProcess = 7; // of the server, among the camera's

// What a read finds.
struct Offer {
    int fd = 0; // 0: nothing
    std::span<const uint8_t> bytes{};
    bool isEnd = false;
    bool isError = false;
};

struct MachineState {
    std::optional<ParameterStore> store;
    uint16_t faults = 0;
    bool isSilent = false;

    Offer offer;
    bool hasPeer = false;
    bool isOpen[kLastConnection - kFirstConnection + 1] = {};
    bool isShut[kLastConnection - kFirstConnection + 1] = {};

    bool isAnswered = false; // by the parameter host
    ParameterMessage answer{};
    bool isOrdered = false; // of the encoder host
    ControlMessage order{};
};

extern MachineState g_machine;

inline bool Has(Fault fault)
{
    return (g_machine.faults & fault) != 0;
}

template <typename Result> Result Fail(Result result, int error)
{
    errno = error;
    return result;
}
