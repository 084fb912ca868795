// A thread that answers the requests on one System V message queue.
//
// Messages are hostile until proven otherwise: one of another length than the queue's messages have is
// logged and dropped before the answer function sees it. A queue that is removed is made again. A reply
// for which the queue has no room for a second is dropped, so that requests go on being served.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <thread>

inline constexpr size_t kMostQueueWords = 16;

struct QueueText {
    long type;
    uint32_t word[kMostQueueWords];
};

// Turns the request into its reply in place and returns the reply's type, or nothing when the message
// gets no reply. Runs on the queue's thread.
using AnswerFunction = std::function<std::optional<long>(QueueText& message)>;

class QueueServer {
  public:
    // Serves messages of `requestType` with `textBytes` of text; the name is for logs and the thread, what is
    // asked for names its moments (hosts/pause_point.h).
    QueueServer(const char* name, const char* asked, key_t key, int mode, long requestType, size_t textBytes,
                AnswerFunction answer);
    ~QueueServer() { Stop(); }
    QueueServer(const QueueServer&) = delete;
    QueueServer& operator=(const QueueServer&) = delete;

    void Start();
    void Stop();

  private:
    void Run();
    void Serve(int id, QueueText& message, size_t received);
    void Reply(int id, const QueueText& message);

    const char* const name_;
    const char* const asked_;
    const key_t key_;
    const int mode_;
    const long requestType_;
    const size_t textBytes_;
    const AnswerFunction answer_;
    std::atomic<bool> stopping_{false};
    std::atomic<bool> ended_{true};
    std::thread thread_;
};
