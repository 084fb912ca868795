// The media connections of one recorder: receives on a thread of its own, checks every byte of every frame
// and accounts for every frame that does not come.
//
// A frame is missed only where the encoder host stood still or died, or where the flow was paused: each such
// event allows one gap on each connection, until Settle() finds that the media flows again.
// Thread-safe.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "bench/soak_frames.h"
#include "bench/soak_verdict.h"
#include "recorder/connection.h"
#include "recorder/frame_assembler.h"

class SoakWatch {
  public:
    SoakWatch(SoakVerdict& verdict, const char* name);
    ~SoakWatch();
    SoakWatch(const SoakWatch&) = delete;
    SoakWatch& operator=(const SoakWatch&) = delete;

    // Takes over a connection that claimed the stream.
    void Add(uint32_t stream, Connection connection);
    void CloseAll();
    [[nodiscard]] size_t Connections() const;
    [[nodiscard]] bool Has(uint32_t stream) const;

    void AllowGap() { ++allowedGaps_; }
    // Waits until each connection has got another picture and another sound; complains about one that does
    // not before the deadline. From then on nothing may be missed.
    void Settle(TimePoint deadline);

  private:
    struct Track {
        std::optional<uint64_t> last; // number of the last frame
        uint64_t usedGaps = 0;
        uint64_t frames = 0;
    };
    struct Feed {
        uint32_t stream;
        Connection connection;
        FrameAssembler assembler;
        uint64_t spoiled = 0; // messages that the verdict knows of
        Track picture = {};
        Track sound = {};
    };

    void Run();
    void Drain(Feed& feed);
    void Take(Feed& feed, const Frame& frame);
    void Account(Feed& feed, Track& track, std::optional<uint64_t> number, const char* kind);
    [[nodiscard]] std::vector<uint64_t> FrameCounts() const;

    SoakVerdict& verdict_;
    const char* const name_;
    std::atomic<uint64_t> allowedGaps_{0};
    std::atomic<bool> stop_{false};
    mutable std::mutex mutex_; // guards the feeds
    std::vector<Feed> feeds_;
    std::thread thread_;
};
