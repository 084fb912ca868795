// The recorders that suffer a stress scene: each has a session of its own and watches one stream. One
// thread serves them all, checks every byte that they get and measures how regularly the pictures come.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "recorder/session.h"
#include "recorder/stress/figures.h"
#include "recorder/stress/media_checker.h"

// A gap longer than this is taken for the trace of a stuck reader, for whom the camera waits about 400 ms.
inline constexpr milliseconds kStall{250};

// When a gap between two pictures began.
enum Phase : size_t { kCalm, kLoad, kAfter, kPhases };

// What one watcher, or all of them, met in one phase.
struct Gaps {
    microseconds worst{0};
    microseconds second{0}; // the next one after the worst
    int64_t stalls = 0;
    int64_t pictures = 0;
    void Note(microseconds gap);
    void TakeWorse(const Gaps& other);
};

// What a load sees of the watchers, from its own thread.
struct Pulse {
    std::atomic<TimePoint> lastPicture{TimePoint{}}; // of the watcher that got one last
    std::atomic<int64_t> stalls{0};                  // of all watchers
};

class Watchers {
  public:
    // Logs in `count` recorders, each to the next of the streams, and starts their video.
    // With `alarmsOnMedia` their media connections subscribe to alarms, too.
    Watchers(const HostPort& address, milliseconds timeout, size_t count,
             const std::vector<const Stream*>& streams, bool alarmsOnMedia);

    // Receives until that time. A watcher that loses its connection is told on standard error.
    void Receive(Phase phase, TimePoint until);
    // How many pictures each of them has had in the phase at least.
    [[nodiscard]] int64_t Pictures(Phase phase) const;
    [[nodiscard]] int commandFd() const { return watchers_.front()->session.command().fd(); }
    [[nodiscard]] Pulse& pulse() { return pulse_; }

    // Counts the time since the latest pictures as gaps, too. Call once, when all is received.
    void End();
    void AddFigures(Figures* figures) const;

  private:
    struct Watcher {
        Session session;
        const Stream* stream;
        Connection media;
        MediaChecker checker;
        bool isLost = false;
        Phase phase = kCalm; // in which the latest picture came
        TimePoint lastPicture{};
        std::array<Gaps, kPhases> gaps{};
        Watcher(Session&& loggedIn, const Stream& wanted, bool alarmsOnMedia);
    };
    void Pass(Phase phase, TimePoint until);
    void Serve(Watcher& watcher, Phase phase, bool isReadable);
    void NotePicture(Watcher& watcher, Phase phase);
    [[nodiscard]] uint64_t CountDifferentFrames() const;

    std::vector<std::unique_ptr<Watcher>> watchers_;
    Pulse pulse_;
};
