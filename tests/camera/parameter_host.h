// A parameter host for tests: owns queue, data segment and parameter block, writes down every request and
// answers it. Runs on a thread of its own until destroyed.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct Request {
    int code;
    std::vector<uint8_t> value; // as it lay in the requester's slot
    int source = 7;
    int offset = 61440;
    bool operator==(const Request&) const = default;
};
void PrintTo(const Request& request, std::ostream* out);

// A request whose value is one little-endian number.
template <typename T> Request Sent(int code, T value)
{
    Request request{code, std::vector<uint8_t>(sizeof value)};
    memcpy(request.value.data(), &value, sizeof value);
    return request;
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
    // The parameter block, zeroed.
    uint8_t* NewBlock();
    template <typename T> void Set(size_t offset, T value) { memcpy(block_ + offset, &value, sizeof value); }

  private:
    void Serve();

    std::mutex mutex_; // guards what follows; held from the note of a request to its answer
    std::condition_variable answered_;
    std::vector<Request> requests_;
    std::function<int(const Request&)> result_;
    bool removesQueue_ = false;

    int queueId_;
    uint8_t* block_ = nullptr;
    std::thread thread_;
};

// The one that lives as long as the test program, which it sets up as process 7 of the camera.
ParameterHost& Host();
