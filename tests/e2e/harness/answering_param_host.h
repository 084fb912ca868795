// The answering half of a stand-in for the parameter host: a thread that answers every request on the
// queue with the length of its value, as if it were stored, and writes it down. The block stays as it is.
#pragma once

#include <sys/msg.h>

#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "camera/parameter_message.h"
#include "common/sysv_ipc.h"

class AnsweringParamHost {
  public:
    ~AnsweringParamHost()
    {
        const ParameterMessage end{kParameterRequestType, kEnd, 0, 0, 0, 0};
        msgsnd(queue_, &end, kParameterTextBytes, 0);
        answering_.join();
    }
    // The requests since the last call, each as its code and the bytes of its value: "2:5000 10:00 ". A
    // request is written down before its answer is sent.
    std::string Take()
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
            const std::lock_guard lock(mutex_);
            requests_ += std::to_string(message.iCode) + ":";
            for (int32_t i = 0; i < message.iLengthOrResult; i++) {
                char hex[3];
                snprintf(hex, sizeof hex, "%02X", data_.get()[message.iDataOffset + i]);
                requests_ += hex;
            }
            requests_ += " ";
            message.lType = message.iSource;
            msgsnd(queue_, &message, kParameterTextBytes, 0);
        }
    }

    int queue_ = IpcMsgInit(kParameterKey, kParameterQueueMode);
    ShmAttachment data_{IpcShareMemInit(kParameterKey, kParameterDataBytes, kParameterDataMode)};
    std::mutex mutex_;
    std::string requests_;
    std::thread answering_{[this] { Answer(); }}; // last: it uses the others
};
