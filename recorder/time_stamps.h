// Time stamps of a recording: the time a frame arrived, freed of the network's jitter.
//
// The camera sends no time stamps. A stream's frames follow each other by its frame rate, so each stamp is
// the one before plus one frame, drawn gently towards the arrival: jitter vanishes, while a camera whose
// clock or real rate differs a little from what it says stays in step. After a pause the arrival counts.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>

inline constexpr int64_t kStampJumpUs = 1'000'000; // further away than this, the arrival itself counts
inline constexpr int64_t kStampStepUs = 1'000;     // least distance: a container counts in milliseconds
inline constexpr int64_t kStampPull = 8;           // this part of the distance is made good by each frame

struct StampSmoother {
    int64_t next = -1; // where the coming frame belongs; -1 before the first
    int64_t last = -1;

    // Stamp of a frame that arrived at arrivalUs (0 or above) and lasts durationUs, 0 when not known.
    // Each stamp is above the one before.
    int64_t Stamp(int64_t arrivalUs, int64_t durationUs)
    {
        int64_t stamp = arrivalUs;
        if (next >= 0 && durationUs > 0 && std::abs(arrivalUs - next) <= kStampJumpUs)
            stamp = next + (arrivalUs - next) / kStampPull;
        if (last >= 0)
            stamp = std::max(stamp, last + kStampStepUs);
        last = stamp;
        next = stamp + durationUs;
        return stamp;
    }
};
