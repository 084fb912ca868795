#include "hosts/pause_point.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <csignal>
#include <deque>
#include <iterator>
#include <stdexcept>

#include "common/log.h"

namespace {

struct PauseMoment {
    std::string name;
    std::atomic<uint32_t> timesLeft;
};

std::deque<PauseMoment> g_moments;

bool IsMoment(std::string_view name, std::string_view what, std::string_view when)
{
    return name.size() == what.size() + 1 + when.size() && name.starts_with(what) &&
           name[what.size()] == '-' && name.ends_with(when);
}

} // namespace

void AddPauseMoment(const std::string& text)
{
    const size_t colon = text.find(':');
    const std::string name = text.substr(0, colon);
    const std::string times = colon == std::string::npos ? "1" : text.substr(colon + 1);
    const char* const end = times.data() + times.size();
    uint32_t n = 0;
    const auto read = std::from_chars(times.data(), end, n);
    const bool isKnown =
        std::find(std::begin(kPauseMoments), std::end(kPauseMoments), name) != std::end(kPauseMoments);
    if (!isKnown || read.ec != std::errc{} || read.ptr != end || n == 0)
        throw std::runtime_error("--pause-at " + text + ": no such moment (the manual page tells them)");
    g_moments.emplace_back();
    g_moments.back().name = name;
    g_moments.back().timesLeft = n;
}

void ReachMoment(std::string_view what, std::string_view when)
{
    for (PauseMoment& moment : g_moments)
        if (IsMoment(moment.name, what, when) && --moment.timesLeft == 0) {
            LogWarn("stopped at %s, SIGCONT goes on\n", moment.name.c_str());
            raise(SIGSTOP); // to this thread, which goes no step further; all others stop with it
        }
}
