#include "server/idle_detector.h"

#include <cstdlib>

#include "common/clock.h"
#include "common/log.h"
#include "protocol/connection_table.h"
#include "server/network_state.h"

namespace {

constexpr char kThreadName[] = "VLMFdDetecter"; // whose lines these are, in the log
constexpr uint32_t kPeriodMs = 2000;
constexpr int64_t kIdleLimitSeconds = 29; // silent for longer than this, either way round

bool IsSilent(const ConnectionEntry& entry, uint32_t now)
{
    return std::abs(static_cast<int64_t>(now) - static_cast<int64_t>(entry.last_active)) > kIdleLimitSeconds;
}

void EndSession(uint32_t sessionId)
{
    for (int slot = 0; slot < kMaxConnections; ++slot) {
        const ConnectionHold connection(slot);
        if (!connection || connection.entry().sessionid != sessionId)
            continue;
        LogTrace("%s %d: sessionid %d go to hell\n", kThreadName, __LINE__, sessionId);
        RemoveFd(connection.entry().fd);
    }
}

} // namespace

void IdleDetectorStep(uint32_t now)
{
    // Each slot is read when its turn comes: a connection may log in, or speak, while others are ended.
    for (int slot = 0; slot < kMaxConnections; ++slot) {
        ConnectionHold connection(slot);
        if (!connection || !IsSilent(connection.entry(), now))
            continue;
        const uint32_t sessionId = connection.entry().sessionid;
        connection.Release();
        EndSession(sessionId);
    }
}

void* VLMFdDetecter(void* argument)
{
    const auto run = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(argument));
    while (IsNetworkRun(run)) {
        IdleDetectorStep(GetUptime());
        SleepMs(kPeriodMs);
    }
    LogTrace("%s %d: Thread end!\n", __func__, __LINE__);
    return nullptr;
}
