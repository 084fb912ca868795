// Stand-ins for the sibling processes, for as long as one measurement lasts: an encoder host that
// publishes synthetic frames at an exact rate, and a parameter host with the few settings of live view.
//
// All System V objects are made when a BenchHosts is made, must not exist before, and are removed with
// it. Its threads answer the queues and publish; the caller's thread only waits.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "bench/frame_pattern.h"
#include "common/sysv_ipc.h"

inline constexpr uint16_t kServerPort = 9000;

// What lies where the next record will be, until it is published.
enum class NextRecord {
    Blank,     // no valid magic: readers look again every millisecond
    Announced, // a valid magic, not finished: readers look again every 5 ms
};

// One ring being written. Position and key-frame position are read by the thread that answers queries.
struct RingWriter {
    FramePattern pattern;
    NextRecord nextRecord;
    ShmAttachment ring = ShmAttachment();
    uint32_t ringBytes = 0;
    uint64_t number = 0; // of the next frame
    std::atomic<uint32_t> position{0};
    std::atomic<uint32_t> keyPosition{0};
};

// Publishes the ring's next frame.
void PublishFrame(RingWriter& writer);

class BenchHosts {
  public:
    // Publishes both streams from now on; throws std::runtime_error when an object exists already.
    BenchHosts(const FramePattern& mainStream, const FramePattern& secondStream, NextRecord nextRecord);
    BenchHosts(const BenchHosts&) = delete;
    BenchHosts& operator=(const BenchHosts&) = delete;
    ~BenchHosts();

    // When the main stream's frames are due. The second stream's follow half a frame later.
    [[nodiscard]] FrameClock Clock() const { return {startNs_, main_.pattern.framesPerSecond}; }

  private:
    void Publish();
    void AnswerPositions() const;
    void AnswerControl() const;
    void AnswerParameters() const;

    std::vector<int> segments_;
    int positionQueue_ = -1, controlQueue_ = -1, parameterQueue_ = -1;
    RingWriter main_, second_;
    int64_t startNs_ = 0;
    std::atomic<bool> stop_{false};
    std::vector<std::jthread> threads_;
};
