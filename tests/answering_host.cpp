#include "tests/answering_host.h"

#include <sys/msg.h>

#include <cstdio>

namespace {

struct Message {
    long type;
    int32_t word[100]; // code, source, reserved, length or result, offset, more than there should be
};

constexpr int32_t kEnd = -1; // no request has this code

} // namespace

AnsweringHost::~AnsweringHost()
{
    const Message end{1, {kEnd}};
    msgsnd(queueId_, &end, 20, 0);
    serving_.join();
    shmdt(block);
}

std::vector<Request> AnsweringHost::Take()
{
    const std::lock_guard lock(mutex_);
    return std::exchange(requests_, {});
}

std::string AnsweringHost::TakeText()
{
    std::string text;
    char digits[4];
    for (const auto& [code, value, source, offset] : Take()) {
        text += (text.empty() ? "" : " ") + std::to_string(code) + ":";
        for (const uint8_t byte : value) {
            snprintf(digits, sizeof digits, "%02X", byte);
            text += digits;
        }
        if (source != 7 || offset != 61440)
            text += "@" + std::to_string(source) + ":" + std::to_string(offset);
    }
    return text;
}

void AnsweringHost::Serve()
{
    Message message{};
    auto& [type, word] = message;
    while (msgrcv(queueId_, &message, 20, 1, 0) >= 0 && word[0] != kEnd) {
        const std::lock_guard lock(mutex_);
        const ShmAttachment data(shmget(kQueueKey, 0, 0));
        const uint8_t* const slot = data.get() + word[4];
        requests_.push_back({word[0], {slot, slot + word[3]}, word[1], word[4]});
        if (answersFirstByte)
            word[3] = *slot;
        type = word[1];
        const Message stray{type, {strayCode, word[1], 0, 99}};
        if (strayCode != kNoStray)
            msgsnd(queueId_, &stray, 20, 0);
        if (answerCode != kNoStray)
            word[0] = answerCode;
        if (!removesQueue.exchange(false)) {
            msgsnd(queueId_, &message, answerBytes, 0);
            continue;
        }
        msgctl(queueId_, IPC_RMID, nullptr);
        queueId_ = IpcMsgInit(kQueueKey, 0666);
    }
}
