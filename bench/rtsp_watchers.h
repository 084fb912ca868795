// The readers of one measurement of the RTSP server: so many connections that play its one stream,
// interleaved in TCP, all served by one thread so that they cost little.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "bench/frame_receiver.h"
#include "bench/rtp_parser.h"
#include "common/unique_fd.h"

class RtspWatchers {
  public:
    // Sets `count` connections up and starts the flow. A server that is still starting is waited for;
    // throws std::runtime_error when it does not answer as it should.
    RtspWatchers(const FramePattern& stream, uint16_t port, size_t count);
    RtspWatchers(const RtspWatchers&) = delete;
    RtspWatchers& operator=(const RtspWatchers&) = delete;

    FrameReceiver& Receiver() { return *receiver_; }
    // One for each connection; to be read once the receiver has stopped.
    [[nodiscard]] const std::vector<RtpParser>& Parsers() const { return parsers_; }

  private:
    void KeepAlive();

    std::vector<UniqueFd> sockets_;
    std::vector<std::string> sessions_;
    std::vector<RtpParser> parsers_;
    int64_t nextKeepaliveNs_ = 0;
    std::optional<FrameReceiver> receiver_; // last: its thread ends before what it uses
};
