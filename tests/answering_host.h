// The answering half of a parameter host: a thread that writes down every request on the queue and answers
// it. The parameter block stays as it is. What there is not yet of the host's objects is made.
#pragma once

#include <sys/shm.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "common/sysv_ipc.h"

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
inline constexpr auto* SentByte = Sent<uint8_t>;

// Answers with the length of the value, in 20 bytes, unless a test says otherwise.
struct AnsweringHost {
    ~AnsweringHost();
    // Requests since the last call; each is written down, under the lock, before its answer is sent.
    std::vector<Request> Take();
    // The same as a text: code:VALUE in hexadecimal digits, with @process:offset of others than process 7.
    std::string TakeText();
    // Values of the block by their offsets.
    template <typename T> void Set(std::initializer_list<std::pair<size_t, T>> fields)
    {
        for (const auto& [offset, value] : fields)
            memcpy(block + offset, &value, sizeof value);
    }

    std::atomic<bool> answersFirstByte{false}; // of the value, as the result
    std::atomic<size_t> answerBytes{20};
    std::atomic<bool> removesQueue{false}; // once, instead of answering; it goes on with a new one
    static constexpr int kNoStray = -1;
    std::atomic<int> strayCode{kNoStray};  // an answer with this code and the result 99 goes ahead of each
    std::atomic<int> answerCode{kNoStray}; // instead of the request's
    uint8_t* const block =
        static_cast<uint8_t*>(shmat(shmget(kBlockKey, kBlockBytes, IPC_CREAT | 0660), nullptr, 0));

  private:
    void Serve();

    std::mutex mutex_; // guards the requests; held from the note of one to its answer
    std::vector<Request> requests_;
    int queueId_ = IpcMsgInit(kQueueKey, 0666);
    std::thread serving_{[this] { Serve(); }}; // last: it uses the others
};
