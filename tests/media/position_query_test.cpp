#include "media/position_query.h"

#include <gtest/gtest.h>
#include <sys/msg.h>

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
    EXPECT_EQ(AVStreamQuery(kType, 4, kQueryStart, &message), 102);
    EXPECT_EQ(AVStreamQuery(1, 0, kQueryStart, &message), 102);
    EXPECT_EQ(AVStreamQuery(17, 0, kQueryStart, &message), 102);
    EXPECT_EQ(AVStreamQuery(kType, 0, kQueryStart, nullptr), 106);
    EXPECT_EQ(QueueLength(), 0U);
}

TEST_F(PositionQuery, BelievesOnlyTheAnswerToItsQuestion)
{
    const struct {
        uint32_t client, command, stream, result;
        size_t bytes = 44;
    } kAnswers[] = {
        {kType, 0x2001, 1, 1}, {kType, 0x2002, 0, 2},     {11, 0x2002, 1, 3},
        {kType, 0x4001, 1, 4}, {kType, 0x2002, 1, 5, 12}, // too short to hold a result
    };
    for (int last = 0; last < 3; last++) {
        Send(kType, 0x2002, 1, 1); // came before the question
        std::thread host([&] {
            const PositionMessage request = TakeRequest();
            const uint32_t expected[] = {kType, 0x2002, 1, 0};
            EXPECT_TRUE(std::equal(expected, expected + 4, request.word));
            for (const auto& answer : kAnswers)
                Send(answer.client, answer.command, answer.stream, answer.result, answer.bytes);
            if (last == 0)
                Send(kType, 0x2002, 1, 0xFFFFFFFF, 16);
            else if (last == 1)
                Send(kType, 0x2002, 1, 0xFFFFFFFF, 80); // overlong
            else
                Send(0, 0, 0, 0xFFFFFFFF); // a host that does not echo
        });
        EXPECT_EQ(QueryPosition(kType, 1, kQueryKeyFrame), 0xFFFFFFFF);
        host.join();
        EXPECT_EQ(QueueLength(), 0U);
    }
}

TEST_F(PositionQuery, AsksAgainWhenTheHostDiedWithTheRequest)
{
    const PositionMessage stale{.type = kType, .word = {kType, kQueryStart, 0, 1}};
    while (msgsnd(queue_, &stale, PositionMessage::kTextBytes, IPC_NOWAIT) == 0) {
    } // a queue full of its own old answers does not block it either
    std::thread host([&] {
        (void)TakeRequest(); // and dies
        (void)TakeRequest();
        Send(kType, kQueryStart, 0, 128);
    });
    EXPECT_EQ(QueryPosition(kType, 0, kQueryStart), 128U);
    host.join();
}

TEST_F(PositionQuery, FailsOnceWhenTheQueueVanishesAndOpensTheNext)
{
    std::thread host([&] {
        (void)TakeRequest();
        msgctl(queue_, IPC_RMID, nullptr);
    });
    EXPECT_EQ(QueryPosition(kType, 0, kQueryStart), 0U);
    host.join();
    EXPECT_TRUE(OpenPositionQueue());
    EXPECT_EQ(gGetAVStreamSysInfo.queueId, msgget(kPositionQueueKey, 0));
    msgctl(gGetAVStreamSysInfo.queueId, IPC_RMID, nullptr);
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
