// Checks every byte that a media connection brings: the framing, the header of each message, the cutting
// into frames, and what the frames hold, as far as another watcher of the stream can tell.
//
// Thread-bound; one checker per connection.
#pragma once

#include <cstdint>
#include <vector>

#include "recorder/connection.h"
#include "recorder/frame_assembler.h"

class MediaChecker {
  public:
    MediaChecker(uint32_t sessionId, size_t maxFrameBytes) : session_(sessionId), assembler_(maxFrameBytes) {}

    // Takes the connection's next message; true when it completes a picture.
    bool Take(const Message& message);

    // Messages and frames that are not as they must be.
    [[nodiscard]] uint64_t faults() const { return faults_ + assembler_.counters().damaged - earlyDamaged_; }
    [[nodiscard]] uint64_t alarms() const { return alarms_; }
    // A hash of each frame since the first whole one.
    [[nodiscard]] const std::vector<uint64_t>& frames() const { return frames_; }

  private:
    void CheckHeader(const MessageHeader& header);
    bool TakeMedia(const Message& message);

    uint32_t session_;
    FrameAssembler assembler_;
    uint32_t nextSeqNum_ = 0;
    uint64_t faults_ = 0;
    uint64_t earlyDamaged_ = 0; // a frame that was under way when the watcher came
    uint64_t alarms_ = 0;
    std::vector<uint64_t> frames_;
};

// In how many frames two watchers of the same stream differ, from the first frame that both have to the last.
uint64_t CountDifferent(const std::vector<uint64_t>& one, const std::vector<uint64_t>& other);
