// The recorders of one measurement: one session with a command connection and up to fifteen media
// connections that watch the main stream, all served by one thread so that they cost little.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "bench/frame_receiver.h"
#include "bench/media_parser.h"
#include "common/unique_fd.h"

class Watchers {
  public:
    // Connects, logs in, claims the main stream `count` times and starts the flow. A server that is
    // still starting is waited for; throws std::runtime_error when it does not answer in time.
    Watchers(const FramePattern& mainStream, uint16_t port, size_t count);
    Watchers(const Watchers&) = delete;
    Watchers& operator=(const Watchers&) = delete;

    FrameReceiver& Receiver() { return *receiver_; }
    // One for each media connection; to be read once the receiver has stopped.
    [[nodiscard]] const std::vector<MediaParser>& Parsers() const { return parsers_; }

  private:
    void KeepAlive();

    UniqueFd command_;
    std::vector<UniqueFd> media_;
    std::vector<MediaParser> parsers_;
    int64_t nextKeepaliveNs_ = 0;
    uint32_t session_ = 0;
    std::optional<FrameReceiver> receiver_; // last: its thread ends before what it uses
};
