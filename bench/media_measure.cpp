#include "bench/media_measure.h"

#include <stdexcept>
#include <vector>

#include "bench/process_under_test.h"
#include "bench/rtsp_watchers.h"
#include "bench/watchers.h"
#include "common/clock.h"

namespace {

constexpr uint64_t kWarmUpFrames = 25;
constexpr int64_t kQuietNs = 10000000;              // before a frame is due, nothing moves
constexpr int64_t kLastFrameLimitNs = 3000000000LL; // for frames that are late
constexpr FramePattern kSecondStreamPattern{.bitsPerSecond = 256 * 1000};
constexpr uint16_t kRtspPort = 8554;

// Waits until the condition holds; false when it does not before the limit.
template <typename Condition> bool WaitFor(int64_t limitNs, const Condition& condition)
{
    for (const int64_t end = MonotonicNs() + limitNs; !condition(); SleepMs(5))
        if (MonotonicNs() > end)
            return false;
    return true;
}

// The first frame number of a group of pictures that is due at least the warm-up from now.
uint64_t FirstMeasuredFrame(const FrameClock& clock, const FramePattern& pattern)
{
    uint64_t number = 0;
    const int64_t earliest = MonotonicNs() + clock.DueNs(kWarmUpFrames) - clock.DueNs(0);
    while (clock.DueNs(number) < earliest)
        number += pattern.gopFrames;
    return number;
}

// Fills in what the watchers saw of the frames from `first` up to, not including, `end`.
template <typename Parser>
void EvaluateFrames(const std::vector<Parser>& parsers, uint64_t first, uint64_t end, MediaFigures& figures)
{
    std::vector<double> delaysMs;
    uint64_t damaged = 0;
    for (const Parser& parser : parsers) {
        damaged += parser.damaged;
        std::vector<bool> seen(end - first);
        for (const ReceivedFrame& frame : parser.frames) {
            if (frame.number < first || frame.number >= end || seen[frame.number - first])
                continue;
            seen[frame.number - first] = true;
            delaysMs.push_back(static_cast<double>(frame.delayNs) / 1e6);
        }
    }
    figures.damagedFrames = static_cast<double>(damaged);
    figures.lostFrames = static_cast<double>(parsers.size() * (end - first) - delaysMs.size());
    figures.delayP50Ms = Percentile(delaysMs, 0.50);
    figures.delayP99Ms = Percentile(delaysMs, 0.99);
}

// Measures a program that serves the watchers already.
template <typename WatcherGroup>
MediaFigures MeasureRunning(const ProcessUnderTest& process, const FrameClock& clock, WatcherGroup& watchers,
                            const FramePattern& pattern, uint32_t seconds)
{
    FrameReceiver& receiver = watchers.Receiver();
    if (!WaitFor(kLastFrameLimitNs, [&] { return receiver.AllReached(0); }))
        throw std::runtime_error("no frame reaches every watcher");
    const uint64_t first = FirstMeasuredFrame(clock, pattern);
    const uint64_t end = first + uint64_t{seconds} * pattern.framesPerSecond;

    SleepUntilNs(clock.DueNs(first) - kQuietNs);
    const ProcessCounters before = ReadCounters(process.Pid());
    const uint64_t bytesBefore = receiver.DeliveredBytes();
    SleepUntilNs(clock.DueNs(end) - kQuietNs);
    const ProcessCounters after = ReadCounters(process.Pid());
    const uint64_t bytesAfter = receiver.DeliveredBytes();
    const ProcessMemory memory = ReadMemory(process.Pid());
    (void)WaitFor(kLastFrameLimitNs, [&] { return receiver.AllReached(end - 1); }); // else counted as lost
    receiver.Stop();

    MediaFigures figures;
    EvaluateFrames(watchers.Parsers(), first, end, figures);
    figures.deliveredMb = static_cast<double>(bytesAfter - bytesBefore) / 1e6;
    figures.cpuMsPerSecond = static_cast<double>(after.runNs - before.runNs) / 1e6 / seconds;
    figures.servingMsPerSecond =
        figures.cpuMsPerSecond - static_cast<double>(after.lookNs - before.lookNs) / 1e6 / seconds;
    if (figures.deliveredMb > 0)
        figures.cpuSecondsPerGb = figures.cpuMsPerSecond * seconds / figures.deliveredMb;
    figures.wakeUpsPerSecond = static_cast<double>(after.wakeUps - before.wakeUps) / seconds;
    figures.pssMb = static_cast<double>(memory.pssBytes) / 1e6;
    figures.rssMb = static_cast<double>(memory.rssBytes) / 1e6;
    return figures;
}

// Connects the watchers to a program that has just been started, and measures it.
template <typename WatcherGroup>
MediaFigures MeasureStarted(const ProcessUnderTest& process, const FrameClock& clock,
                            const FramePattern& pattern, uint16_t port, const MediaLoad& load)
{
    try {
        WatcherGroup watchers(pattern, port, load.watchers);
        return MeasureRunning(process, clock, watchers, pattern, load.seconds);
    } catch (const std::exception&) {
        process.CheckAlive(); // the better reason, when it has ended
        throw;
    }
}

} // namespace

MediaFigures MeasureServer(const std::string& program, const MediaLoad& load)
{
    const FramePattern pattern{.bitsPerSecond = load.mbit * 1000000};
    const BenchHosts hosts(pattern, kSecondStreamPattern, load.nextRecord);
    const ProcessUnderTest process(program);
    return MeasureStarted<Watchers>(process, hosts.Clock(), pattern, kServerPort, load);
}

MediaFigures MeasureRtsp(const std::string& program, const MediaLoad& load)
{
    const FramePattern pattern{.bitsPerSecond = load.mbit * 1000000};
    const FrameClock clock{MonotonicNs(), pattern.framesPerSecond};
    const ProcessUnderTest process(
        program, {std::to_string(kRtspPort), std::to_string(load.mbit), std::to_string(clock.startNs)});
    return MeasureStarted<RtspWatchers>(process, clock, pattern, kRtspPort, load);
}
