// Points in time on the clock that nobody can set, and how long poll() may wait for one.
#pragma once

#include <algorithm>
#include <chrono>

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;
using std::chrono::microseconds;
using std::chrono::milliseconds;

// The wait until `until` in poll()'s milliseconds, rounded up so that a loop does not spin at the end.
inline int PollTimeout(TimePoint until)
{
    const auto rest = std::chrono::ceil<milliseconds>(until - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(rest, 0, 60'000));
}
