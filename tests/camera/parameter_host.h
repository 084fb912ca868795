// A parameter host for tests: owns queue, data segment and parameter block, writes down every request and
// answers it. Runs on a thread of its own until destroyed.
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

inline constexpr key_t kQueueKey = 14073; // and the data segment's
inline constexpr key_t kBlockKey = 12930021;
inline constexpr size_t kBlockBytes = 0x24000; // and the data segment's

struct Request {
    int code;
    std::vector<uint8_t> value; // as it lay in the requester's slot
    int source = 7;
    int offset = 61440;
    bool operator==(const Request&) const = default;
};

// Requests whose value is one little-endian number.
template <typename T> Request Sent(int code, T value)
{
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&value);
    return {code, {bytes, bytes + sizeof value}};
}
inline Request SentByte(int code, int value)
{
    return Sent(code, static_cast<uint8_t>(value));
}
inline Request SentShort(int code, int value)
{
    return Sent(code, static_cast<uint16_t>(value));
}

class ParameterHost {
  public:
    ParameterHost();
    ~ParameterHost();
    // The result of each answer; the length of the value unless a test says otherwise.
    void AnswerWith(std::function<int(const Request&)> result);
    // Removes the queue instead of answering the next request, then goes on with a new one.
    void RemoveQueueAtNextRequest();
    // Returns once so many requests since the last Take have been answered.
    void WaitForAnswers(size_t requests);
    // Requests since the last call; each is written down before its answer is sent.
    std::vector<Request> Take();
    // The parameter block.
    uint8_t* block() const { return block_; }
    template <typename T> void Set(size_t offset, T value) { memcpy(block_ + offset, &value, sizeof value); }

  private:
    void Serve();

    std::mutex mutex_; // guards what follows; held from the note of a request to its answer
    std::condition_variable answered_;
    std::vector<Request> requests_;
    std::function<int(const Request&)> result_;
    bool removesQueue_ = false;

    int queueId_;
    uint8_t* block_;
    std::thread thread_;
};

// The one that lives as long as the test program, which it sets up as process 7 of the camera.
ParameterHost& Host();
// What a call writes to standard error.
std::string ErrorOutputOf(const std::function<void()>& call);
