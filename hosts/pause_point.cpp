#include "hosts/pause_point.h"

#include <unistd.h>

#include <atomic>
#include <csignal>

#include "common/log.h"

namespace {

std::string g_moment; // empty: never
std::atomic<uint32_t> g_timesLeft{0};

bool IsMoment(std::string_view what, std::string_view when)
{
    return g_moment.size() == what.size() + 1 + when.size() && g_moment.starts_with(what) &&
           g_moment[what.size()] == '-' && g_moment.ends_with(when);
}

} // namespace

void SetPauseMoment(const std::string& moment, uint32_t n)
{
    g_moment = moment;
    g_timesLeft = n;
}

void ReachMoment(std::string_view what, std::string_view when)
{
    if (g_moment.empty() || !IsMoment(what, when) || --g_timesLeft != 0)
        return;
    LogWarn("stopped at %s, SIGCONT goes on\n", g_moment.c_str());
    kill(getpid(), SIGSTOP);
}
