#include "recorder/stress/watchers.h"

#include <poll.h>

#include <algorithm>
#include <cstdio>

#include "recorder/failure.h"

namespace {

constexpr int kReadsPerPass = 16; // before the others get their turn
constexpr milliseconds kPass{20}; // how late the end of a phase may be noticed
constexpr const char* kPhaseNames[kPhases] = {"calm", "load", "after"};

int64_t Ms(microseconds time)
{
    return std::chrono::ceil<milliseconds>(time).count();
}

} // namespace

void Gaps::Note(microseconds gap)
{
    second = std::max(second, std::min(worst, gap));
    worst = std::max(worst, gap);
    stalls += gap > kStall ? 1 : 0;
}

void Gaps::TakeWorse(const Gaps& other)
{
    worst = std::max(worst, other.worst);
    second = std::max(second, other.second);
    stalls = std::max(stalls, other.stalls);
    pictures += other.pictures;
}

Watchers::Watcher::Watcher(Session&& loggedIn, const Stream& wanted, bool alarmsOnMedia)
    : session(std::move(loggedIn)), stream(&wanted), media(session.Claim(wanted, alarmsOnMedia)),
      checker(session.id(), wanted.maxFrameBytes)
{
    session.Monitor("Start", wanted);
    lastPicture = Clock::now();
}

Watchers::Watchers(const HostPort& address, milliseconds timeout, size_t count,
                   const std::vector<const Stream*>& streams, bool alarmsOnMedia)
{
    for (size_t i = 0; i < count; i++) {
        Session session(address, timeout);
        session.Login();
        watchers_.push_back(
            std::make_unique<Watcher>(std::move(session), *streams[i % streams.size()], alarmsOnMedia));
    }
}

int64_t Watchers::Pictures(Phase phase) const
{
    int64_t least = INT64_MAX;
    for (const auto& watcher : watchers_)
        if (!watcher->isLost)
            least = std::min(least, watcher->gaps[phase].pictures);
    return least;
}

void Watchers::NotePicture(Watcher& watcher, Phase phase)
{
    const TimePoint now = Clock::now();
    Gaps& gaps = watcher.gaps[watcher.phase];
    const auto gap = std::chrono::duration_cast<microseconds>(now - watcher.lastPicture);
    if (gaps.pictures > 0) { // the first wait is none of the stream's
        gaps.Note(gap);
        pulse_.stalls += gap > kStall ? 1 : 0;
    }
    watcher.phase = phase;
    watcher.gaps[phase].pictures++;
    watcher.lastPicture = now;
    pulse_.lastPicture = now;
}

void Watchers::Serve(Watcher& watcher, Phase phase, bool isReadable)
{
    try {
        watcher.session.Receive();
        watcher.session.KeepAlive();
        // What arrived together with the claim's answer lies in the connection already.
        for (int reads = 0; reads < kReadsPerPass; reads++) {
            while (const auto message = watcher.media.NextMessage())
                if (watcher.checker.Take(*message))
                    NotePicture(watcher, phase);
            if (!isReadable || !watcher.media.ReadMore())
                return;
        }
    } catch (const Failure& failure) {
        watcher.isLost = true;
        fprintf(stderr, "velmora: session %u: %s\n", watcher.session.id(), failure.what());
    }
}

void Watchers::Pass(Phase phase, TimePoint until)
{
    std::vector<pollfd> polled;
    for (const auto& watcher : watchers_) {
        const int fd = watcher->isLost ? -1 : watcher->media.fd();
        polled.push_back({fd, POLLIN, 0});
    }
    (void)poll(polled.data(), polled.size(), PollTimeout(std::min(until, Clock::now() + kPass)));
    for (size_t i = 0; i < watchers_.size(); i++)
        if (!watchers_[i]->isLost)
            Serve(*watchers_[i], phase, polled[i].revents != 0);
}

void Watchers::Receive(Phase phase, TimePoint until)
{
    while (Clock::now() < until)
        Pass(phase, until);
}

void Watchers::End()
{
    const TimePoint now = Clock::now();
    for (const auto& watcher : watchers_)
        watcher->gaps[watcher->phase].Note(
            std::chrono::duration_cast<microseconds>(now - watcher->lastPicture));
}

uint64_t Watchers::CountDifferentFrames() const
{
    uint64_t different = 0;
    for (const auto& one : watchers_) {
        const auto sameStream =
            std::ranges::find_if(watchers_, [&](const auto& other) { return other->stream == one->stream; });
        if (*sameStream != one) // the first of a stream is what the others are compared with
            different += CountDifferent((*sameStream)->checker.frames(), one->checker.frames());
    }
    return different;
}

void Watchers::AddFigures(Figures* figures) const
{
    std::array<Gaps, kPhases> all{};
    int64_t lost = 0;
    int64_t faults = 0;
    for (const auto& watcher : watchers_) {
        lost += watcher->isLost ? 1 : 0;
        faults += static_cast<int64_t>(watcher->checker.faults());
        for (size_t phase = 0; phase < kPhases; phase++)
            all[phase].TakeWorse(watcher->gaps[phase]);
    }
    for (size_t phase = 0; phase < kPhases; phase++) {
        const std::string name = kPhaseNames[phase];
        figures->emplace_back(name + "_pictures", all[phase].pictures);
        figures->emplace_back(name + "_gap_ms", Ms(all[phase].worst));
    }
    figures->emplace_back("load_second_gap_ms", Ms(all[kLoad].second));
    figures->emplace_back("stalls", all[kLoad].stalls);
    figures->emplace_back("lost", lost);
    figures->emplace_back("faults", faults);
    figures->emplace_back("different_frames", static_cast<int64_t>(CountDifferentFrames()));
}
