#include "recorder/stress/machine_noise.h"

#include <array>

#include "recorder/deadline.h"

namespace {

constexpr size_t kWaits = 200;
constexpr milliseconds kWait{2};

} // namespace

MachineNoise::MachineNoise() : thread_([this](const std::stop_token& stop) { Measure(stop); }) {}

void MachineNoise::Measure(const std::stop_token& stop)
{
    std::array<int64_t, kWaits> lateUs{}; // of the latest waits
    int64_t sumUs = 0;
    for (size_t i = 0; !stop.stop_requested(); i = (i + 1) % kWaits) {
        const TimePoint begin = Clock::now();
        std::this_thread::sleep_for(kWait);
        const auto tookUs = std::chrono::duration_cast<microseconds>(Clock::now() - begin - kWait).count();
        sumUs += tookUs - lateUs[i];
        lateUs[i] = tookUs;
        if (sumUs > worstUs_)
            worstUs_ = sumUs;
    }
}
