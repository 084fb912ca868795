// The command line of the bench camera.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "hosts/alarm_source.h"
#include "hosts/ipc_objects.h"
#include "hosts/ring_liar.h"

struct Options {
    std::string mainFile;
    std::string secondFile;
    std::string clips;
    std::string state;
    std::string server;
    std::vector<std::string> serverArguments;
    std::optional<MotionSchedule> motionSchedule;
    std::optional<LiePlan> lies;
    Hosts hosts{~0ULL}; // to be, all unless told
    bool testPicture = false;
    double rebootPause = 2; // seconds
    bool recordingHost = false;
    bool purge = false;
    bool applyNetwork = false;
};

// Reads the command line; throws std::runtime_error for values that do not hold. Returns the exit status when
// there is nothing to run: help was asked for, or the arguments are wrong.
std::optional<int> ReadOptions(int argc, char** argv, Options* options);
