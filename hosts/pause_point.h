// Moments at which the whole program stops itself, as a host that hangs does: what a server does about it
// can be watched for as long as one likes. SIGCONT lets it go on, and it does not stop there again.
//
// The moments are those of kPauseMoments. Set before threads run; reached from any of them.
#pragma once

#include <string>
#include <string_view>

inline constexpr const char* kPauseMoments[] = {
    "param-before-answer", "param-after-answer", "position-before-answer", "position-after-answer",
    "order-before-answer", "order-after-answer", "main-mid-frame",         "second-mid-frame",
};

// "MOMENT" or "MOMENT:N": stops when the moment is reached for the first or the N-th time. Throws
// std::runtime_error for other texts. May be called for several moments.
void AddPauseMoment(const std::string& text);
// Called where a moment is.
void ReachMoment(std::string_view what, std::string_view when);
