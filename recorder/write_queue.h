// Keeps slow files away from the network: a thread of its own takes frames from a bounded queue and
// writes them.
//
// The thread that receives pushes and never waits. When the queue is full, frames are dropped up to the
// next key frame that finds room, and counted. The writer's failure is told by a descriptor that a poll
// loop watches, and thrown by Finish().
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "common/unique_fd.h"
#include "recorder/stored_frame.h"

inline constexpr size_t kQueueBytes = size_t{64} * 1024 * 1024; // half a minute of a 16 Mbit/s stream

class WriteQueue {
  public:
    explicit WriteQueue(const std::string& path);
    ~WriteQueue();
    WriteQueue(const WriteQueue&) = delete;
    WriteQueue& operator=(const WriteQueue&) = delete;

    void Push(StoredFrame frame);
    // Becomes readable when the writer has failed.
    [[nodiscard]] int failedFd() const { return failed_.get(); }
    // Lets the writer write what is queued and close its file. A pipe that nobody reads from is given up
    // after the limit. Throws the writer's failure.
    void Finish(milliseconds limit);

    [[nodiscard]] uint64_t dropped() const { return dropped_; }
    // After Finish: the files that were written, in order.
    [[nodiscard]] const std::vector<std::string>& files() const { return files_; }

  private:
    void Run();
    bool Take(StoredFrame& frame);

    std::string path_;
    UniqueFd failed_;
    std::mutex lock_; // guards queue_, queuedBytes_, closing_, done_ and error_
    std::condition_variable changed_;
    std::deque<StoredFrame> queue_;
    size_t queuedBytes_ = 0;
    bool closing_ = false;
    bool done_ = false;
    std::exception_ptr error_;
    std::vector<std::string> files_;   // the writer's until done_
    std::atomic<bool> giveUp_ = false; // ends a wait for a pipe's reader
    bool waitForKeyFrame_ = false;     // the receiving thread's, like dropped_
    uint64_t dropped_ = 0;
    std::thread thread_; // last: it uses everything above
};
