// A moment at which the whole program stops itself, as a host that hangs does: what a server does about
// it can be watched for as long as one likes. SIGCONT lets it go on, and it does not stop again.
//
// The moments are those of kPauseMoments. Set before threads run; reached from any of them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

inline constexpr const char* kPauseMoments[] = {
    "param-before-answer", "param-after-answer", "position-before-answer", "position-after-answer",
    "order-before-answer", "order-after-answer", "main-mid-frame",         "second-mid-frame",
};

// Stops when this moment is reached for the n-th time, n at least 1.
void SetPauseMoment(const std::string& moment, uint32_t n);
// Called where a moment is.
void ReachMoment(std::string_view what, std::string_view when);
