// The encoder host's command codes, and what each carries (docs/ipc.md, "Control queue").
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

enum ControlArgument : uint8_t {
    kNoArgument, // the argument word is 0
    kNumber,     // one number, in the argument word
    kPayload,    // 16 bytes behind the words
};

struct ControlCommand {
    uint32_t command;
    ControlArgument argument;
};

inline constexpr size_t kControlPayloadBytes = 16;
inline constexpr uint32_t kCommandWithPayload = 0x6605; // the only one

// In rising order of the codes.
inline constexpr ControlCommand kControlCommands[] = {
    {0x1001, kNoArgument}, {0x1002, kNoArgument}, {0x1040, kNoArgument}, {0x1042, kNoArgument},
    {0x1045, kNoArgument}, {0x1046, kNoArgument}, {0x1047, kNoArgument}, {0x2001, kNumber},
    {0x2002, kNumber},     {0x2003, kNumber},     {0x2010, kNumber},     {0x2020, kNoArgument},
    {0x2030, kNoArgument}, {0x2040, kNoArgument}, {0x3001, kNumber},     {0x3002, kNoArgument},
    {0x3003, kNoArgument}, {0x4001, kNumber},     {0x5001, kNoArgument}, {0x5002, kNumber},
    {0x5003, kNumber},     {0x5004, kNumber},     {0x5005, kNumber},     {0x5006, kNumber},
    {0x5007, kNumber},     {0x5008, kNumber},     {0x5101, kNoArgument}, {0x5102, kNoArgument},
    {0x5201, kNoArgument}, {0x5202, kNoArgument}, {0x5203, kNoArgument}, {0x5204, kNoArgument},
    {0x5205, kNoArgument}, {0x5206, kNoArgument}, {0x5207, kNoArgument}, {0x5208, kNoArgument},
    {0x5209, kNoArgument}, {0x520A, kNoArgument}, {0x5301, kNoArgument}, {0x5302, kNoArgument},
    {0x5303, kNoArgument}, {0x5304, kNoArgument}, {0x5401, kNoArgument}, {0x5402, kNoArgument},
    {0x5501, kNoArgument}, {0x5601, kNoArgument}, {0x5701, kNoArgument}, {0x5801, kNoArgument},
    {0x5901, kNoArgument}, {0x5A01, kNoArgument}, {0x5B01, kNoArgument}, {0x5C01, kNoArgument},
    {0x5D01, kNoArgument}, {0x5D02, kNoArgument}, {0x5E01, kNoArgument}, {0x5F01, kNoArgument},
    {0x6001, kNoArgument}, {0x6101, kNoArgument}, {0x6201, kNoArgument}, {0x6301, kNoArgument},
    {0x6401, kNoArgument}, {0x6501, kNoArgument}, {0x6601, kNumber},     {0x6602, kNoArgument},
    {0x6603, kNoArgument}, {0x6604, kNoArgument}, {0x6605, kPayload},    {0x6606, kNoArgument},
    {0x6701, kNoArgument}, {0x6801, kNumber},     {0x6802, kNoArgument}, {0x6901, kNoArgument},
    {0x6A01, kNumber},     {0x6A02, kNoArgument}, {0x6B01, kNoArgument}, {0x6C01, kNoArgument},
    {0x6D01, kNumber},     {0x6E01, kNoArgument}, {0x6F01, kNumber},     {0x7001, kNumber},
    {0x8001, kNoArgument},
};

consteval bool ControlCommandsRise()
{
    for (size_t i = 1; i < std::size(kControlCommands); i++)
        if (kControlCommands[i].command <= kControlCommands[i - 1].command)
            return false;
    return true;
}
static_assert(ControlCommandsRise());
static_assert(std::size(kControlCommands) == 81);
