// The other end of a System V queue, and other small helpers of tests with real IPC objects.
#pragma once

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/shm.h>

#include <algorithm>
#include <cstring>
#include <vector>

struct WordMessage {
    long type;
    uint32_t word[64];
};

// Sends 32-bit words as a message of the type; waits for nothing.
inline void SendWords(key_t key, long type, const std::vector<uint32_t>& words)
{
    WordMessage message{type, {}};
    std::copy(words.begin(), words.end(), message.word);
    ASSERT_EQ(msgsnd(msgget(key, 0), &message, words.size() * 4, 0), 0);
}

// The next message of the type; blocks until it comes.
inline std::vector<uint32_t> ReceiveWords(key_t key, long type)
{
    WordMessage message{};
    const ssize_t bytes = msgrcv(msgget(key, 0), &message, sizeof message.word, type, 0);
    return {message.word, message.word + std::max<ssize_t>(bytes, 0) / 4};
}

inline size_t MessagesInQueue(key_t key)
{
    msqid_ds status{};
    return msgctl(msgget(key, 0), IPC_STAT, &status) == 0 ? status.msg_qnum : SIZE_MAX;
}

inline uint8_t* AttachSegment(key_t key)
{
    return static_cast<uint8_t*>(shmat(shmget(key, 0, 0), nullptr, 0));
}

// Process 7 asks the parameter host for a change; what the parameter block says of the HTTP port.
inline constexpr key_t kParameterQueue = 14073;
inline constexpr uint32_t kSlot7 = 61440; // of process 7

inline void SendValue(uint32_t code, const std::vector<uint8_t>& value)
{
    uint8_t* const data = AttachSegment(kParameterQueue);
    memcpy(data + kSlot7, value.data(), value.size());
    shmdt(data);
    SendWords(kParameterQueue, 1, {code, 7, 0, static_cast<uint32_t>(value.size()), kSlot7});
}

inline int HttpPort()
{
    const uint8_t* const block = AttachSegment(12930021);
    const int port = block[1108] | block[1109] << 8;
    shmdt(block);
    return port;
}
