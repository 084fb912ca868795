#include "bench/soak_plan.h"

#include <cinttypes>
#include <iterator>

namespace {

struct OperationRow {
    const char* name;
    uint32_t weight;
};
constexpr OperationRow kOperations[] = {
    {"log in again", 3}, {"watch main", 6}, {"watch sub", 5}, {"pause flow", 3},       {"stop watching", 2},
    {"keepalive", 5},    {"get all", 4},    {"set", 8},       {"abilities", 4},        {"inquiries", 5},
    {"ptz", 5},          {"preset", 4},     {"alarms on", 4}, {"alarms off", 2},       {"key frame", 3},
    {"search", 3},       {"talk", 2},       {"garbage", 6},   {"garbage datagram", 3},
};
static_assert(std::size(kOperations) == static_cast<size_t>(Operation::kCount));

struct FaultRow {
    const char* name;
    uint32_t weight;
};
constexpr FaultRow kFaults[] = {
    {"none", 4},
    {"parameter host ends", 3},
    {"media host stops", 3},
    {"media host dies", 3},
    {"alarm source dies", 2},
    {"recorder vanishes", 3},
    {"slow reader", 1},
    {"console", 2},
};
static_assert(std::size(kFaults) == static_cast<size_t>(Fault::kCount));

constexpr uint32_t kStepsPerRound = 6;
constexpr uint32_t kMostPauseMs = 700;
constexpr uint32_t kMostFaultDelayMs = 1500;
constexpr uint32_t kLeastFaultMs = 300;
constexpr uint32_t kMostFaultMs = 3000;

struct Dice {
    uint64_t state;
    // 0 to below - 1 (splitmix64).
    uint32_t Roll(uint32_t below)
    {
        uint64_t word = state += 0x9E3779B97F4A7C15;
        word = (word ^ (word >> 30)) * 0xBF58476D1CE4E5B9;
        word = (word ^ (word >> 27)) * 0x94D049BB133111EB;
        return static_cast<uint32_t>((word ^ (word >> 31)) >> 32) % below;
    }
};

template <typename Row, size_t Rows> size_t Draw(Dice& dice, const Row (&rows)[Rows])
{
    uint32_t sum = 0;
    for (const Row& row : rows)
        sum += row.weight;
    uint32_t left = dice.Roll(sum);
    size_t drawn = 0;
    while (left >= rows[drawn].weight)
        left -= rows[drawn++].weight;
    return drawn;
}

} // namespace

Round PlanRound(uint64_t seed, uint64_t number)
{
    Dice dice{seed * 0xD1342543DE82EF95 + number};
    Round round{};
    round.fault = static_cast<Fault>(Draw(dice, kFaults));
    round.faultDelayMs = dice.Roll(kMostFaultDelayMs);
    round.faultMs = kLeastFaultMs + dice.Roll(kMostFaultMs - kLeastFaultMs);
    for (std::vector<Step>& steps : round.steps) {
        for (uint32_t step = 0; step < kStepsPerRound; ++step) {
            const auto operation = static_cast<Operation>(Draw(dice, kOperations));
            const uint32_t value = dice.Roll(1U << 30);
            steps.push_back({.operation = operation, .value = value, .pauseMs = dice.Roll(kMostPauseMs)});
        }
    }
    return round;
}

const char* NameOf(Operation operation)
{
    return kOperations[static_cast<size_t>(operation)].name;
}

const char* NameOf(Fault fault)
{
    return kFaults[static_cast<size_t>(fault)].name;
}

void PrintRound(FILE* to, uint64_t number, const Round& round)
{
    fprintf(to, "round %" PRIu64 ": %s after %u ms for %u ms\n", number, NameOf(round.fault),
            round.faultDelayMs, round.faultMs);
    for (size_t recorder = 0; recorder < kSoakRecorders; ++recorder)
        for (const Step& step : round.steps[recorder])
            fprintf(to, "  recorder %zu: %u ms, then %s %u\n", recorder, step.pauseMs, NameOf(step.operation),
                    step.value);
}
