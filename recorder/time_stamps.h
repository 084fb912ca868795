// Time stamps of a recording: the time a frame arrived, freed of the network's jitter and of bursts.
//
// The camera sends no time stamps. A stream's frames follow each other by its frame rate, so each stamp is
// the one before plus one frame, drawn gently towards the arrival: jitter vanishes, while a camera whose
// clock or real rate differs a little from what it says stays in step. Frames that come at once, because the
// camera sends its backlog first or something stood still on the way, keep their distance and run ahead of
// the clock, which catches up so slowly that nobody sees it. After a pause the arrival counts.
#pragma once

#include <algorithm>
#include <cstdint>

inline constexpr int64_t kStampJumpUs = 1'000'000;   // later than this, the arrival itself counts ...
inline constexpr int64_t kStampPatienceUs = 500'000; // ... unless a backlog makes it good within this time
inline constexpr int64_t kStampStepUs = 1'000;       // least distance: a container counts in milliseconds
inline constexpr int64_t kStampPull = 8;             // this part of the distance is made good by each frame
inline constexpr int64_t kStampHaste = 20;           // a frame is shortened by this part of it at most ...
inline constexpr int64_t kStampFarHaste = 2;         // ... or by this one, far ahead of the clock

struct StampSmoother {
    int64_t next = -1; // where the coming frame belongs; -1 before the first
    int64_t last = -1;
    int64_t lastArrival = -1;
    int64_t lateSince = -1; // arrival of the first frame of those that come far too late; -1: in time

    // Stamp of a frame that arrived at arrivalUs (0 or above) and lasts durationUs, 0 when not known.
    // Each stamp is above the one before.
    int64_t Stamp(int64_t arrivalUs, int64_t durationUs)
    {
        int64_t stamp = arrivalUs;
        if (next >= 0 && durationUs > 0)
            stamp = next + Pull(arrivalUs, durationUs);
        if (last >= 0)
            stamp = std::max(stamp, last + kStampStepUs);
        last = stamp;
        lastArrival = arrivalUs;
        next = stamp + durationUs;
        return stamp;
    }

  private:
    // How far a frame is moved from where its rate puts it.
    int64_t Pull(int64_t arrivalUs, int64_t durationUs)
    {
        const int64_t distance = arrivalUs - next;
        if (distance > kStampJumpUs) {
            if (lateSince < 0)
                lateSince = arrivalUs;
            return arrivalUs - lateSince >= kStampPatienceUs ? distance : 0;
        }
        lateSince = -1;
        if (distance < -kStampJumpUs)
            return -durationUs / kStampFarHaste;
        if (arrivalUs - lastArrival < durationUs / 2)
            return 0;
        return std::max(distance / kStampPull, -durationUs / kStampHaste);
    }
};
