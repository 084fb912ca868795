// How long an end-to-end test waits for what has to happen. The waits end with the event; the limit only
// guards against hangs, and is stretched for slow (sanitized) servers by VELMORA_SLOWNESS.
#pragma once

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>

using Clock = std::chrono::steady_clock;

// How many times slower the server is than the one that is shipped; 1 for that.
inline int Slowness()
{
    const char* slowness = getenv("VELMORA_SLOWNESS");
    return slowness != nullptr ? std::max(atoi(slowness), 1) : 1;
}

inline Clock::duration Patience(std::chrono::seconds limit = std::chrono::seconds(20))
{
    return limit * Slowness();
}

// Waits for a condition of which nobody tells: shared memory, /proc, another process's socket.
template <typename Condition> void WaitUntil(const std::string& what, Condition condition)
{
    for (const auto deadline = Clock::now() + Patience(); !condition();) {
        if (Clock::now() > deadline)
            throw std::runtime_error("in vain waited for " + what);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}
