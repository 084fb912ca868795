// Puts the media messages of one connection together to whole frames.
//
// The first message of a frame begins with a sub-header that names the frame's kind and length; the
// messages after it carry the rest. Nothing in them is trusted: lengths are bounded, a message that does
// not continue the frame gives the frame up, and the assembler goes on at the next message that begins
// with a sub-header. A body that begins with a valid sub-header always starts a frame, also where the
// frame before it is incomplete: no picture holds those four bytes at the start of a message.
// Thread-bound; one assembler per media connection.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "media/media_layout.h"

struct Frame {
    FrameKind kind;
    std::span<const uint8_t> payload; // lies in the assembler until its next call
    KeyFrameHeader header;            // of the latest key frame; all zero before the first
};

struct AssemblerCounters {
    uint64_t gaps = 0;         // places where sequence numbers are missing
    uint64_t lostMessages = 0; // how many are missing
    uint64_t damaged = 0;      // times a frame was given up, or a sub-header was missing or senseless
    void Add(const AssemblerCounters& others)
    {
        gaps += others.gaps;
        lostMessages += others.lostMessages;
        damaged += others.damaged;
    }
};

class FrameAssembler {
  public:
    explicit FrameAssembler(size_t maxFrameBytes) : maxFrameBytes_(maxFrameBytes) {}

    // Takes the body of the next media message; returns the frame that it completes.
    std::optional<Frame> Add(uint32_t seqNum, std::span<const uint8_t> body);
    // Counts a message of the camera that is numbered like the media messages but is none.
    void Skip(uint32_t seqNum);

    [[nodiscard]] const AssemblerCounters& counters() const { return counters_; }

  private:
    bool StartFrame(std::span<const uint8_t> body);
    bool ContinueFrame(std::span<const uint8_t> body);
    void LosePlace();

    size_t maxFrameBytes_;
    std::vector<uint8_t> frame_;
    size_t frameBytes_ = 0; // announced length; 0 between frames
    FrameKind kind_ = kOtherFrame;
    KeyFrameHeader header_{};
    bool lost_ = false;           // bodies are skipped until one begins with a sub-header
    uint32_t expectedSeqNum_ = 0; // the camera counts every connection from 0
    AssemblerCounters counters_;
};
