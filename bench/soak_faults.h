// What goes wrong in a round of the soak. Each fault begins, lasts and is mended within one call; what it
// leaves behind is nothing.
#pragma once

#include "bench/soak_camera.h"
#include "bench/soak_recorder.h"

struct SoakWorld {
    SoakVerdict& verdict;
    SoakScene& scene;
    SoakLog& log;
    SoakCamera& camera;
    std::vector<SoakRecorder*> recorders;
    std::string program; // the soak itself
};

// Used by the thread that owns the camera.
void RunFault(SoakWorld& world, const Round& round);

// The recorder that vanishes: watches the main stream until it is killed. Writes a line once it sees it.
int RunVanishingRecorder(const HostPort& camera);
