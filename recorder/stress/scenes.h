// The scenes of `velmora stress`: what each does to a camera while others watch it.
//
// A scene runs on a thread of its own until it is over or is asked to stop, and returns what it did. It
// opens its connections by itself, so that nothing of it lies in the watchers' way but the camera.
#pragma once

#include <netinet/in.h>

#include <functional>
#include <span>
#include <stop_token>
#include <string>

#include "recorder/session.h"
#include "recorder/stress/figures.h"
#include "recorder/stress/watchers.h"

struct LoadOptions {
    HostPort address;
    milliseconds timeout{};
    int connections = 0;                 // readers, too
    int rate = 0;                        // datagrams, or messages, a second in all
    std::string reader;                  // kind of slow reader
    uint16_t requestId = kGetAbilityReq; // whose answers are not read
    int takeBytes = 0;                   // that a slow reader takes
    int everyMs = 0;                     // how often, or between two bytes of a trickle
    int resumeMs = 0;                    // stall of the others after which a reader takes what lies there
    int bufferBytes = 0;                 // receive buffer of readers, 0: the system's
    bool forge = false;                  // source addresses of datagrams
    uint16_t consolePort = 0;
};

struct Load {
    const LoadOptions& options;
    sockaddr_in camera; // its protocol port
    Pulse& pulse;       // of the watchers
    std::stop_token stop;
};

struct Scene {
    const char* name;
    const char* about;
    int connections; // when the user gives no number
    int rate;
    Figures (*run)(const Load& load);
};
std::span<const Scene> Scenes();
// Throws kExitUsage.
const Scene& FindScene(const std::string& name);

using LoadFunction = Figures(const Load& load);
LoadFunction LoadNothing, LoadReaders, LoadConnections, LoadStorm, LoadTrickle, LoadGarbage,
    LoadUnreadReplies, LoadSearch, LoadConsole;
