#include "media/position_query.h"

#include <gtest/gtest.h>
#include <sys/msg.h>

#include <array>
#include <thread>

#include "media/frame_source_state.h"

namespace {

constexpr int32_t kType = 10;

class PositionQuery : public testing::Test {
  protected:
    PositionQuery() { gGetAVStreamSysInfo.queueId = -1; }
    ~PositionQuery() override { msgctl(queue_, IPC_RMID, nullptr); }
    PositionMessage TakeRequest() const
    {
        PositionMessage request{};
        EXPECT_EQ(msgrcv(queue_, &request, PositionMessage::kTextBytes, kPositionRequestType, 0), 44);
        return request;
    }
    void Send(uint32_t client, uint32_t command, uint32_t stream, uint32_t result, size_t bytes = 44) const
    {
        const QueueMessage<20> reply{.type = kType, .word = {client, command, stream, result}};
        EXPECT_EQ(msgsnd(queue_, &reply, bytes, 0), 0);
    }
    [[nodiscard]] size_t QueueLength() const
    {
        msqid_ds status{};
        return msgctl(queue_, IPC_STAT, &status) == 0 ? status.msg_qnum : 0;
    }
    const int queue_ = msgget(kPositionQueueKey, IPC_CREAT | 0600);
};

TEST_F(PositionQuery, RefusesWhatItCannotAsk)
{
    PositionMessage message{};
    for (const auto& [type, index] : {std::pair(kType, 4U), {kType, ~0U}, {1, 0U}, {17, 0U}, {-1, 0U}})
        EXPECT_EQ(AVStreamQuery(type, index, kQueryStart, &message), 102);
    EXPECT_EQ(AVStreamQuery(kType, 0, kQueryStart, nullptr), 106);
}

TEST_F(PositionQuery, BelievesOnlyTheAnswerToItsQuestion)
{
    // Client type, command, stream, result and bytes.
    const std::array<uint32_t, 5> kAnswers[] = {
        {kType, 0x2001, 1, 1, 44}, {kType, 0x2002, 0, 2, 44}, {11, 0x2002, 1, 3, 44},
        {kType, 0x4001, 1, 4, 44}, {kType, 0x2002, 1, 5, 12}, // too short to hold a result
    };
    for (int last = 0; last < 3; last++) {
        Send(kType, 0x2002, 1, 1); // came before the question
        std::thread host([&] {
            const PositionMessage request = TakeRequest();
            const uint32_t expected[] = {kType, 0x2002, 1, 0};
            EXPECT_TRUE(std::equal(expected, expected + 4, request.word));
            for (const auto& [client, command, stream, result, bytes] : kAnswers)
                Send(client, command, stream, result, bytes);
            if (last == 2)
                Send(0, 0, 0, 0xFFFFFFFF); // a host that does not echo
            else
                Send(kType, 0x2002, 1, 0xFFFFFFFF, last == 0 ? 16 : 80); // as short as can be, and overlong
        });
        EXPECT_EQ(QueryPosition(kType, 1, kQueryKeyFrame), 0xFFFFFFFF);
        host.join();
        EXPECT_EQ(QueueLength(), 0U);
    }
}

TEST_F(PositionQuery, ReadersOfBothStreamsGetTheirOwnAnswers)
{
    constexpr uint32_t kRounds = 50;
    std::thread host([&] {
        for (uint32_t i = 0; i < 2 * kRounds; i++) {
            const PositionMessage request = TakeRequest();
            Send(0, 0, 0, 1000 + request.word[2]); // only one query at a time can tell these apart
        }
    });
    const auto ask = [](uint32_t stream) {
        for (uint32_t i = 0; i < kRounds; i++)
            EXPECT_EQ(QueryPosition(kType, stream, kQueryStart), 1000 + stream);
    };
    std::thread first(ask, 0U), second(ask, 1U);
    first.join();
    second.join();
    host.join();
}

} // namespace
