// Runs the program as a user does.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include "tests/recorder/clip.h"
#include "tests/recorder/fake_camera.h"

struct Outcome {
    int code;
    std::string out, err;
};

// Runs the program with these words; $HOST stands for the camera.
inline Outcome RunTool(const TemporaryDirectory& folder, const FakeCamera& camera, const std::string& words)
{
    const std::string command = "cd " + folder.path() + "; HOST=" + PrintHostPort(camera.address) +
                                "; exec " VELMORA_TOOL " " + words + " >out 2>err";
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, OutputOf("cat " + folder.File("out")),
            OutputOf("cat " + folder.File("err"))};
}
