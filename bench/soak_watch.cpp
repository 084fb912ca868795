#include "bench/soak_watch.h"

#include <poll.h>

#include <algorithm>
#include <cinttypes>

#include "common/clock.h"
#include "protocol/message.h"
#include "recorder/failure.h"

namespace {

constexpr int kPollMs = 50; // until a new connection is seen
constexpr uint32_t kSettlePollMs = 20;

} // namespace

SoakWatch::SoakWatch(SoakVerdict& verdict, const char* name)
    : verdict_(verdict), name_(name), thread_([this] { Run(); })
{
}

SoakWatch::~SoakWatch()
{
    stop_ = true;
    thread_.join();
}

void SoakWatch::Add(uint32_t stream, Connection connection)
{
    const std::lock_guard lock(mutex_);
    feeds_.push_back({stream, std::move(connection), FrameAssembler(kMainFrameBytes)});
    feeds_.back().picture.usedGaps = feeds_.back().sound.usedGaps = allowedGaps_;
}

void SoakWatch::CloseAll()
{
    const std::lock_guard lock(mutex_);
    feeds_.clear();
}

size_t SoakWatch::Connections() const
{
    const std::lock_guard lock(mutex_);
    return feeds_.size();
}

bool SoakWatch::Has(uint32_t stream) const
{
    const std::lock_guard lock(mutex_);
    return std::ranges::any_of(feeds_, [stream](const Feed& feed) { return feed.stream == stream; });
}

std::vector<uint64_t> SoakWatch::FrameCounts() const
{
    const std::lock_guard lock(mutex_);
    std::vector<uint64_t> counts;
    for (const Feed& feed : feeds_) {
        counts.push_back(feed.picture.frames);
        counts.push_back(feed.sound.frames);
    }
    return counts;
}

void SoakWatch::Settle(TimePoint deadline)
{
    const std::vector<uint64_t> before = FrameCounts();
    std::vector<uint64_t> now;
    const auto isFlowing = [&] {
        now = FrameCounts();
        return now.size() != before.size() ||
               std::ranges::equal(before, now, [](uint64_t was, uint64_t is) { return is > was; });
    };
    while (!isFlowing() && Clock::now() < deadline)
        SleepMs(kSettlePollMs);
    for (size_t i = 0; i < std::min(before.size(), now.size()); ++i)
        if (now[i] <= before[i])
            verdict_.Fail("%s: connection %zu gets no %s any more", name_, i / 2,
                          i % 2 == 0 ? "picture" : "sound");
    const std::lock_guard lock(mutex_);
    for (Feed& feed : feeds_)
        feed.picture.usedGaps = feed.sound.usedGaps = allowedGaps_;
}

void SoakWatch::Run()
{
    while (!stop_) {
        std::vector<pollfd> polled;
        {
            const std::lock_guard lock(mutex_);
            for (const Feed& feed : feeds_)
                polled.push_back({.fd = feed.connection.fd(), .events = POLLIN, .revents = 0});
        }
        (void)poll(polled.data(), polled.size(), kPollMs);
        const std::lock_guard lock(mutex_);
        std::erase_if(feeds_, [this](Feed& feed) {
            try {
                Drain(feed);
                return false;
            } catch (const Failure& failure) {
                verdict_.Fail("%s: media connection lost: %s", name_, failure.what());
                return true;
            }
        });
    }
}

void SoakWatch::Drain(Feed& feed)
{
    do {
        while (const auto message = feed.connection.NextMessage()) {
            if (message->header.usMessageId != kMediaData)
                continue;
            verdict_.mediaBytes += message->body.size() + kHeaderBytes;
            if (const auto frame = feed.assembler.Add(message->header.ulSeqNum, message->body))
                Take(feed, *frame);
            const AssemblerCounters& counters = feed.assembler.counters();
            if (counters.gaps + counters.damaged > feed.spoiled) {
                verdict_.Fail("%s: stream %u: %" PRIu64 " times messages are missing, %" PRIu64
                              " times they continue nothing",
                              name_, feed.stream, counters.gaps, counters.damaged);
                feed.spoiled = counters.gaps + counters.damaged;
            }
        }
    } while (feed.connection.ReadMore());
}

void SoakWatch::Take(Feed& feed, const Frame& frame)
{
    if (frame.kind == kAudioFrame) {
        ++verdict_.sounds;
        Account(feed, feed.sound, CheckSound(feed.stream, frame.payload), "sound");
    } else {
        ++verdict_.pictures;
        Account(feed, feed.picture, CheckPicture(feed.stream, frame.kind, frame.payload), "picture");
    }
}

void SoakWatch::Account(Feed& feed, Track& track, std::optional<uint64_t> number, const char* kind)
{
    if (!number) {
        verdict_.Fail("%s: stream %u: a %s is not what was filmed", name_, feed.stream, kind);
        return;
    }
    const std::optional<uint64_t> last = track.last;
    track.last = number;
    ++track.frames;
    if (!last || *number == *last + 1)
        return;
    if (*number <= *last) {
        verdict_.Fail("%s: stream %u: %s %" PRIu64 " after %" PRIu64, name_, feed.stream, kind, *number,
                      *last);
    } else if (track.usedGaps >= allowedGaps_) {
        verdict_.Fail("%s: stream %u: %ss %" PRIu64 " to %" PRIu64 " are missing", name_, feed.stream, kind,
                      *last + 1, *number - 1);
    } else {
        ++track.usedGaps;
        ++verdict_.gaps;
    }
}
