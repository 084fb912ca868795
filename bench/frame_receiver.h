// Receives on many connections with one thread, so that the watchers of a measurement cost little, and
// hands what came to the parser of each.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/unique_fd.h"

struct ReceivedFrame {
    uint64_t number;
    int64_t delayNs; // from publication to the read that brought the last byte
};

class FrameReceiver {
  public:
    // All are called by the receiving thread and may throw std::exception, which ends receiving.
    struct Calls {
        // Takes bytes of connection `watcher` and returns all frames that it has received so far.
        std::function<const std::vector<ReceivedFrame>&(size_t watcher, const uint8_t* data, size_t bytes,
                                                        int64_t nowNs)>
            take;
        std::function<void()> tick; // at least once a second
    };

    // The first `watchers` sockets carry frames; what comes on the others is thrown away. The sockets
    // belong to the caller and outlive the receiver.
    FrameReceiver(std::vector<int> sockets, size_t watchers, Calls calls);
    FrameReceiver(const FrameReceiver&) = delete;
    FrameReceiver& operator=(const FrameReceiver&) = delete;
    ~FrameReceiver();

    // Bytes that all watchers received so far.
    [[nodiscard]] uint64_t DeliveredBytes() const { return delivered_; }
    // Whether every watcher has received this frame or a later one.
    [[nodiscard]] bool AllReached(uint64_t number) const;

    // Ends receiving; afterwards what the calls use may be read. Throws std::runtime_error when a
    // connection was lost or a call threw.
    void Stop();

  private:
    void Receive();
    void Drain(size_t socket, std::vector<uint8_t>& buffer);

    std::vector<int> sockets_;
    size_t watchers_;
    Calls calls_;
    UniqueFd epoll_, wake_;
    std::unique_ptr<std::atomic<uint64_t>[]> reached_; // number of the last whole frame plus one
    std::atomic<uint64_t> delivered_{0};
    std::string error_; // written by the receiving thread, read once it has ended
    std::jthread thread_;
};
