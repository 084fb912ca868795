// The answering half of a stand-in for the parameter host: a thread that answers every request on the
// queue (with the length of its value, as if it were stored) and writes it down. The block stays as it is.
#pragma once

#include <sys/msg.h>
#include <sys/shm.h>

#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "camera/parameter_message.h"
#include "common/sysv_ipc.h"

struct SentParameter {
    int32_t code;
    std::string value;
    bool operator==(const SentParameter&) const = default;
};

class AnsweringParamHost {
  public:
    AnsweringParamHost() : answering_([this] { Answer(); }) {}
    ~AnsweringParamHost()
    {
        const ParameterMessage end{kParameterRequestType, kEnd, 0, 0, 0, 0};
        msgsnd(queue_, &end, kParameterTextBytes, 0);
        answering_.join();
    }
    AnsweringParamHost(const AnsweringParamHost&) = delete;
    AnsweringParamHost& operator=(const AnsweringParamHost&) = delete;

    // What was requested since the last call; a request is written down before its answer is sent.
    std::vector<SentParameter> Take()
    {
        const std::lock_guard lock(mutex_);
        return std::exchange(requests_, {});
    }

  private:
    static constexpr int32_t kEnd = -1; // no request has this code

    void Answer()
    {
        ParameterMessage message{};
        while (msgrcv(queue_, &message, kParameterTextBytes, kParameterRequestType, 0) >= 0 &&
               message.iCode != kEnd) {
            const char* const slot = reinterpret_cast<const char*>(data_.get()) + message.iDataOffset;
            {
                const std::lock_guard lock(mutex_);
                requests_.push_back({message.iCode, {slot, static_cast<size_t>(message.iLengthOrResult)}});
            }
            message.lType = message.iSource;
            msgsnd(queue_, &message, kParameterTextBytes, 0);
        }
    }

    int queue_ = IpcMsgInit(kParameterKey, kParameterQueueMode);
    ShmAttachment data_{IpcShareMemInit(kParameterKey, kParameterDataBytes, kParameterDataMode)};
    std::mutex mutex_;
    std::vector<SentParameter> requests_;
    std::thread answering_; // last: it uses the others
};
