// The recorders of one measurement: one session with a command connection and up to fifteen media
// connections that watch the main stream, all served by one thread so that they cost little.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/media_parser.h"
#include "common/unique_fd.h"

class Watchers {
  public:
    // Connects, logs in, claims the main stream `count` times and starts the flow. A server that is
    // still starting is waited for; throws std::runtime_error when it does not answer in time.
    Watchers(const FramePattern& mainStream, uint16_t port, size_t count);
    Watchers(const Watchers&) = delete;
    Watchers& operator=(const Watchers&) = delete;
    ~Watchers();

    // Bytes that all media connections received so far.
    uint64_t DeliveredBytes() const { return delivered_; }
    // Whether every watcher has received this frame or a later one.
    bool AllReached(uint64_t number) const;

    // Ends receiving; afterwards the parsers may be read. Throws when a connection was lost.
    const std::vector<MediaParser>& Stop();

  private:
    void Receive();
    void Drain(size_t watcher, std::vector<uint8_t>& buffer);
    void KeepAlive();

    UniqueFd command_, epoll_, wake_;
    std::vector<UniqueFd> media_;
    std::vector<MediaParser> parsers_;
    std::unique_ptr<std::atomic<uint64_t>[]> reached_; // number of the last whole frame plus one
    std::atomic<uint64_t> delivered_{0};
    int64_t nextKeepaliveNs_ = 0;
    uint32_t session_ = 0;
    std::string error_; // written by the receiving thread, read once it has ended
    std::jthread thread_;
};
