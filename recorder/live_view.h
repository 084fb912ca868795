// Live media from one camera: a session, a media connection for each stream, whole frames as they come.
//
// One poll loop serves all connections and keeps the session alive between frames. Thread-bound; failures
// are thrown as Failure, after every frame that was complete has been handed over.
#pragma once

#include <poll.h>

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "recorder/frame_assembler.h"
#include "recorder/session.h"

// What one stream has brought so far.
struct StreamStats {
    uint64_t keyFrames = 0;
    uint64_t otherFrames = 0; // since the first key frame, as a recording holds them
    uint64_t earlyFrames = 0; // video before the first key frame, which nobody can show
    uint64_t audioFrames = 0;
    uint64_t bytes = 0;       // of all frames, without headers
    uint64_t earlyBytes = 0;  // of those that came before the first key frame
    TimePoint firstPicture{}; // arrival of the first key frame
    TimePoint lastPicture{};  // arrival of the latest video frame since
    uint64_t frames() const { return keyFrames + otherFrames; }
    // Adds what an earlier connection brought.
    void AddEarlier(const StreamStats& earlier);
};

class LiveView {
  public:
    using FrameSink = std::function<void(size_t stream, const Frame& frame, TimePoint arrival)>;

    // Connects, logs in, claims a media connection for each stream.
    LiveView(const HostPort& address, std::span<const Stream* const> streams, milliseconds timeout);

    void Start();
    // One pass of the loop: waits for traffic, at most until `until`, hands over what is complete, sends the
    // keepalive when it is due. Also returns when one of `others` is ready. Throws kExitNoMedia or
    // kExitTimedOut when a stream has been silent for too long.
    void Pass(TimePoint until, std::span<pollfd> others, const FrameSink& sink);
    // Ends the flow. Best effort: a camera that is gone cannot be asked to stop.
    void Stop();

    [[nodiscard]] const StreamStats& stats(size_t stream) const { return feeds_[stream].stats; }
    [[nodiscard]] const AssemblerCounters& counters(size_t stream) const
    {
        return feeds_[stream].assembler.counters();
    }
    [[nodiscard]] const Session& session() const { return session_; }

  private:
    struct Feed {
        const Stream* stream;
        Connection connection;
        FrameAssembler assembler;
        StreamStats stats{};
        TimePoint lastMedia{};
        bool hasMedia = false;
    };
    void ReceiveFrom(size_t index, const FrameSink& sink);
    void TakeMessages(size_t index, const FrameSink& sink);
    void Count(Feed& feed, const Frame& frame, TimePoint arrival);
    void CheckSilence() const;
    [[nodiscard]] TimePoint silenceLimit() const;

    milliseconds timeout_;
    Session session_;
    std::vector<Feed> feeds_;
    std::vector<pollfd> polled_;
    TimePoint started_{};
};
