#include "media/position_query.h"

#include <thread>

#include "tests/media/fakes.h"

namespace {

constexpr int32_t kType = 10;

class PositionQuery : public testing::Test {
  protected:
    PositionQuery() { gGetAVStreamSysInfo.queueId = -1; }

    const QueueEnd host_{kPositionQueueKey};
    FakeClock clock_;
};

TEST_F(PositionQuery, BelievesOnlyTheAnswerToItsQuestion)
{
    // Client type, command, stream, result and bytes.
    const Words kAnswers[] = {
        {kType, 0x2001, 1, 1, 44}, {kType, 0x2002, 0, 2, 44}, {11, 0x2002, 1, 3, 44},
        {kType, 0x4001, 1, 4, 44}, {kType, 0x2002, 1, 5, 12}, // too short to hold a result
    };
    const auto send = [this](const Words& row) {
        host_.Send(kType, {row[0], row[1], row[2], row[3]}, row[4]);
    };
    // The true answer: as short as can be, overlong, and of a host that does not echo.
    for (const Words& last :
         {Words{kType, 0x2002, 1, ~0U, 16}, {kType, 0x2002, 1, ~0U, 80}, {0, 0, 0, ~0U, 44}}) {
        send({kType, 0x2002, 1, 1, 44}); // came before the question
        clock_.onSleep = [&] {
            const Words request = host_.Take();
            if (request.empty())
                return;
            EXPECT_EQ(request, Words({kType, 0x2002, 1, 0, 0, 0, 0, 0, 0, 0, 0}));
            std::for_each(std::begin(kAnswers), std::end(kAnswers), send);
            send(last);
        };
        EXPECT_EQ(QueryPosition(kType, 1, kQueryKeyFrame), ~0U);
        EXPECT_EQ(host_.Messages(), 0U);
    }
}

TEST_F(PositionQuery, ReadersOfBothStreamsGetTheirOwnAnswers)
{
    std::atomic<int> left{2};
    const auto ask = [&left](uint32_t stream) {
        FakeClock standing; // so that no question is asked twice
        standing.onSleep = [&standing] {
            standing.nowMs = 0;
            std::this_thread::yield();
        };
        for (uint32_t i = 0; i < 50; i++)
            EXPECT_EQ(QueryPosition(kType, stream, kQueryStart), 1000 + stream);
        left--;
    };
    std::thread first(ask, 0U), second(ask, 1U);
    while (left > 0)
        if (const Words request = host_.Take(); !request.empty())
            host_.Send(kType, {0, 0, 0, 1000 + request[2]}, 44); // which of them asked is not in it
    first.join();
    second.join();
}

} // namespace
