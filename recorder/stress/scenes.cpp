#include "recorder/stress/scenes.h"

#include <algorithm>
#include <thread>

#include "recorder/failure.h"

namespace {

constexpr Scene kScenes[] = {
    {"none", "Nothing: how the camera does without a load", 0, 0, LoadNothing},
    {"readers", "Watchers that read slowly or not at all", 1, 0, LoadReaders},
    {"connections", "Connections that are opened and then say nothing", 1000, 0, LoadConnections},
    {"storm", "Connections that come and go as fast as they can", 4, 0, LoadStorm},
    {"trickle", "Requests that come one byte at a time", 16, 0, LoadTrickle},
    {"garbage", "Messages of random bytes", 8, 200, LoadGarbage},
    {"replies", "Requests whose answers nobody reads", 4, 400, LoadUnreadReplies},
    {"search", "Search datagrams", 0, 10000, LoadSearch},
    {"console", "A debug-console client that takes nothing, beside requests that are logged", 1, 100,
     LoadConsole},
};

} // namespace

std::span<const Scene> Scenes()
{
    return kScenes;
}

const Scene& FindScene(const std::string& name)
{
    const auto* const found =
        std::ranges::find_if(kScenes, [&](const Scene& scene) { return scene.name == name; });
    if (found == std::end(kScenes))
        throw Failure(kExitUsage, "no scene is called '" + name + "'");
    return *found;
}

Figures LoadNothing(const Load& load)
{
    while (!load.stop.stop_requested())
        std::this_thread::sleep_for(milliseconds(10));
    return {};
}
