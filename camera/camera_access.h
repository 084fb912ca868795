// The camera access table: the one gate to the camera operations, a row per numbered command.
//
// Constant data. Wrappers (camera_commands.h) run an operation only through RunCameraCommand.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// Every operation takes an input record and fills an output record; it ignores what it does not use.
// Returns 0 (kCameraOk) or a negative status.
using CameraOperation = int(const void* input, void* output);

struct CameraRow {
    uint32_t Camera_command;    // equals the row's index
    const char* name;           // the operation's name, also where it is not supported
    CameraOperation* operation; // null: not supported
};

inline constexpr size_t kCameraCommands = 195;     // 0 to 194
inline constexpr uint32_t kCameraEndCommand = 197; // of the row behind the last command

// The full table with its end row.
std::span<const CameraRow, kCameraCommands + 1> CameraAccessTable();

// Checks the command and runs its operation. Returns the check's code, or the operation's status.
int RunCameraCommand(uint32_t command, const void* input, void* output);
// The same for commands that need their one record: -1, before any check, when it is missing.
int RunSetter(uint32_t command, const void* input);
int RunGetter(uint32_t command, void* output);
