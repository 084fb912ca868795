// The encoder host: owns the rings, the queue on which readers ask for positions and the queue on which
// it takes orders (docs/ipc.md), and plays a file into each of the first two rings, or a test picture where
// a stream is set to something else than its file has, or where test pictures are asked for.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hosts/ipc_objects.h"
#include "hosts/queue_server.h"
#include "hosts/ring_liar.h"
#include "hosts/ring_writer.h"
#include "hosts/stream_player.h"

inline constexpr size_t kPlayedStreams = 2; // main and second; the third ring stays empty

using Players = std::array<std::unique_ptr<StreamPlayer>, kPlayedStreams>;

class MediaHost {
  public:
    // Adopts or makes the objects; throws std::runtime_error when it cannot.
    explicit MediaHost(Players players);
    ~MediaHost() { Stop(); } // before the rings go that the players write into
    MediaHost(const MediaHost&) = delete;
    MediaHost& operator=(const MediaHost&) = delete;

    // Whose position test pictures show; before Start.
    void Film(Motors* head);
    // Returns when both streams have their first record; reports what the file of each gives, and each
    // change of that.
    using ReportFunction = std::function<void(size_t stream, const StreamFacts& facts)>;
    void Start(const ReportFunction& report);
    void Stop();
    void SetPaused(bool paused);
    // What a stream is set to; of the third, which is not played, nothing is done. Any thread.
    void Configure(size_t stream, const StreamFacts& settings);
    // Whether test pictures are shown whatever the streams are set to. Any thread.
    void ShowTestPictures(bool always);
    // Lies into both rings from the start on, each with a seed of its own (hosts/ring_liar.h); before Start.
    // Then `onTruth` is called for each stream on a thread of its own; the stream's next frame is a key
    // frame.
    void Lie(const LiePlan& plan, std::function<void(size_t stream)> onTruth);
    // Removes the objects, those that others use only when `always`. After Stop.
    void Release(bool always);

  private:
    std::optional<long> AnswerPosition(QueueText& message);
    std::optional<long> AnswerControl(QueueText& message);
    uint32_t Position(uint32_t stream, uint32_t command);
    int32_t Control(uint32_t command, uint32_t argument);

    Players players_;
    std::vector<HostSegment> segments_;
    std::array<std::unique_ptr<RingWriter>, kPlayedStreams> rings_;
    std::array<std::unique_ptr<RingLiar>, kPlayedStreams> liars_;
    std::optional<LiePlan> lies_;
    std::function<void(size_t stream)> onTruth_;
    QueueServer positions_;
    QueueServer control_;
};

void PurgeMediaObjects();
