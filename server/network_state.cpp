#include "server/network_state.h"

#include <atomic>

namespace {

std::atomic<uint32_t> g_runsBegun{0};
std::atomic<uint32_t> g_presentRun{0}; // 0 while the network is stopped
std::atomic<RequestHandler*> g_messageCallback{nullptr};

} // namespace

uint32_t BeginNetworkRun()
{
    const uint32_t run = ++g_runsBegun;
    g_presentRun = run;
    return run;
}

void EndNetworkRun()
{
    g_presentRun = 0;
}

bool IsNetworkRun(uint32_t run)
{
    return g_presentRun == run;
}

void SetMessageCallback(RequestHandler* callback)
{
    g_messageCallback = callback;
}

RequestHandler* GetMessageCallback()
{
    return g_messageCallback;
}
