#include "recorder/live_view.h"

#include <algorithm>

#include "recorder/failure.h"

namespace {

// A stop request is a courtesy; it must not hold up a user who pressed Ctrl-C.
constexpr milliseconds kStopTimeout{2'000};

// Key frames may be rare at low frame rates: while other frames arrive, the first one is waited for this
// many times as long as a silent stream.
constexpr int kKeyFramePatience = 4;

// Reads from one connection before the others and the keepalive get their turn.
constexpr int kReadsPerPass = 16;

} // namespace

void StreamStats::AddEarlier(const StreamStats& earlier)
{
    if (earlier.frames() > 0)
        firstPicture = earlier.firstPicture;
    if (frames() == 0)
        lastPicture = earlier.lastPicture;
    keyFrames += earlier.keyFrames;
    otherFrames += earlier.otherFrames;
    earlyFrames += earlier.earlyFrames;
    audioFrames += earlier.audioFrames;
    bytes += earlier.bytes;
    earlyBytes += earlier.earlyBytes;
}

LiveView::LiveView(const HostPort& address, std::span<const Stream* const> streams, milliseconds timeout)
    : timeout_(timeout), session_(address, timeout)
{
    session_.Login();
    for (const Stream* stream : streams)
        feeds_.push_back({stream, session_.Claim(*stream), FrameAssembler(stream->maxFrameBytes)});
}

void LiveView::Start()
{
    started_ = Clock::now();
    for (Feed& feed : feeds_)
        feed.lastMedia = started_;
    session_.Monitor("Start", *feeds_.front().stream); // one start opens every claimed connection
    // A picture at once, and not when the next key frame is due. A camera that knows no such request is as
    // good.
    session_.Post(kForceIFrameReq, R"({"Name":"OPForceIFrame"})");
}

void LiveView::Stop()
{
    try {
        session_.setTimeout(std::min(timeout_, kStopTimeout));
        session_.Monitor("Stop", *feeds_.front().stream);
    } catch (const Failure&) { // the recording is complete, whatever the camera says to this
    }
}

void LiveView::Pass(TimePoint until, std::span<pollfd> others, const FrameSink& sink)
{
    // What arrived together with the claim's answer lies in the connection already; poll() knows nothing of
    // it.
    for (size_t i = 0; i < feeds_.size(); i++)
        TakeMessages(i, sink);
    polled_.assign(others.begin(), others.end());
    for (const Feed& feed : feeds_)
        polled_.push_back({feed.connection.fd(), POLLIN, 0});
    const auto out = static_cast<short>(session_.command().hasUnsent() ? POLLOUT : 0);
    polled_.push_back({session_.command().fd(), static_cast<short>(POLLIN | out), 0});
    if (poll(polled_.data(), polled_.size(),
             PollTimeout(std::min({until, session_.nextWake(), silenceLimit()}))) < 0)
        return; // a signal; whoever wants to know about it watches a descriptor
    std::copy_n(polled_.begin(), others.size(), others.begin());
    for (size_t i = 0; i < feeds_.size(); i++)
        if (polled_[others.size() + i].revents != 0)
            ReceiveFrom(i, sink);
    if (polled_.back().revents != 0)
        session_.Receive();
    session_.KeepAlive();
    CheckSilence();
}

void LiveView::ReceiveFrom(size_t index, const FrameSink& sink)
{
    for (int reads = 0; reads < kReadsPerPass && feeds_[index].connection.ReadMore(); reads++)
        TakeMessages(index, sink);
}

void LiveView::TakeMessages(size_t index, const FrameSink& sink)
{
    Feed& feed = feeds_[index];
    const TimePoint now = Clock::now();
    while (const auto message = feed.connection.NextMessage()) {
        const MessageHeader& header = message->header;
        if (header.usMessageId == kAlarmInfo) // numbered by the same counter
            feed.assembler.Skip(header.ulSeqNum);
        if (header.usMessageId != kMediaData)
            continue;
        feed.lastMedia = now;
        feed.hasMedia = true;
        if (const auto frame = feed.assembler.Add(header.ulSeqNum, message->body)) {
            Count(feed, *frame, now);
            sink(index, *frame, now);
        }
    }
}

void LiveView::Count(Feed& feed, const Frame& frame, TimePoint arrival)
{
    StreamStats& stats = feed.stats;
    stats.bytes += frame.payload.size();
    if (frame.kind != kKeyFrame && stats.keyFrames == 0)
        stats.earlyBytes += frame.payload.size();
    if (frame.kind == kAudioFrame) {
        stats.audioFrames++;
        return;
    }
    if (frame.kind == kOtherFrame && stats.keyFrames == 0) {
        stats.earlyFrames++;
        return;
    }
    if (stats.frames() == 0)
        stats.firstPicture = arrival;
    (frame.kind == kKeyFrame ? stats.keyFrames : stats.otherFrames)++;
    stats.lastPicture = arrival;
}

TimePoint LiveView::silenceLimit() const
{
    TimePoint limit = TimePoint::max();
    for (const Feed& feed : feeds_) {
        limit = std::min(limit, feed.lastMedia + timeout_);
        if (feed.stats.keyFrames == 0)
            limit = std::min(limit, started_ + kKeyFramePatience * timeout_);
    }
    return limit;
}

void LiveView::CheckSilence() const
{
    const TimePoint now = Clock::now();
    for (const Feed& feed : feeds_) {
        const std::string who = feed.connection.name() + ": ";
        const std::string stream = std::string("the ") + feed.stream->option + " stream";
        if (now >= feed.lastMedia + timeout_) {
            if (feed.hasMedia)
                throw Failure(kExitTimedOut, who + "timed out: " + stream + " has stopped");
            throw Failure(kExitNoMedia, who + "no media received on " + stream);
        }
        if (feed.stats.keyFrames == 0 && now >= started_ + kKeyFramePatience * timeout_)
            throw Failure(kExitNoMedia, who + "no key frame received on " + stream);
    }
}
