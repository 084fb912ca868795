#include "media/position_query.h"

#include <gtest/gtest.h>
#include <sys/msg.h>

#include <chrono>
#include <functional>
#include <thread>

#include "media/frame_source_state.h"

namespace {

constexpr int32_t kType = 10;

int Queue()
{
    return msgget(kPositionQueueKey, IPC_CREAT | 0600);
}

size_t QueueLength()
{
    msqid_ds status{};
    msgctl(Queue(), IPC_STAT, &status);
    return status.msg_qnum;
}

PositionMessage TakeRequest(int queue)
{
    PositionMessage request{};
    EXPECT_EQ(msgrcv(queue, &request, PositionMessage::kTextBytes, kPositionRequestType, 0), 44);
    return request;
}

void Answer(int queue, uint32_t client, uint32_t command, uint32_t stream, uint32_t result, size_t bytes = 44)
{
    const PositionMessage reply{.type = kType, .word = {client, command, stream, result}};
    EXPECT_EQ(msgsnd(queue, &reply, bytes, 0), 0);
}

class PositionQuery : public testing::Test {
  protected:
    PositionQuery() : queue_(Queue()) { gGetAVStreamSysInfo.queueId = -1; }
    ~PositionQuery() override { msgctl(Queue(), IPC_RMID, nullptr); }
    const int queue_;
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

// What lies in the queue before, what a host does with the request, and what the reader believes.
const struct QueryCase {
    const char* name;
    std::function<void(int queue)> before;
    std::function<void(int queue)> host;
    uint32_t result;
} kQueryCases[] = {
    {"echoed", [](int) {}, [](int q) { Answer(q, kType, 0x2002, 1, 640); }, 640},
    {"result above 2^31", [](int) {}, [](int q) { Answer(q, kType, 0x2002, 1, 0xFFFFFFFF); }, 0xFFFFFFFF},
    {"answers to other queries are thrown away", [](int) {},
     [](int q) {
         Answer(q, kType, 0x2001, 1, 1);
         Answer(q, kType, 0x2002, 0, 2);
         Answer(q, 11, 0x2002, 1, 3);
         Answer(q, kType, 0x4001, 1, 4);
         Answer(q, kType, 0x2002, 1, 640);
     },
     640},
    {"a host that does not echo is believed", [](int) {}, [](int q) { Answer(q, 0, 0, 0, 640); }, 640},
    {"an answer too short to hold a result", [](int) {},
     [](int q) {
         Answer(q, kType, 0x2002, 1, 1, 12);
         Answer(q, kType, 0x2002, 1, 640, 16);
     },
     640},
    {"an answer that came before the question", [](int q) { Answer(q, kType, 0x2002, 1, 1); },
     [](int q) { Answer(q, kType, 0x2002, 1, 640); }, 640},
    {"an overlong answer is cut", [](int) {},
     [](int q) {
         const QueueMessage<20> reply{.type = kType, .word = {kType, 0x2002, 1, 640}};
         EXPECT_EQ(msgsnd(q, &reply, 80, 0), 0);
     },
     640},
    {"the queue vanishes", [](int) {}, [](int q) { msgctl(q, IPC_RMID, nullptr); }, 0},
};

TEST_F(PositionQuery, BelievesOnlyTheAnswerToItsQuestion)
{
    for (const QueryCase& c : kQueryCases) {
        SCOPED_TRACE(c.name);
        const int queue = Queue();
        gGetAVStreamSysInfo.queueId = -1;
        c.before(queue);
        std::thread host([&] {
            const PositionMessage request = TakeRequest(queue);
            EXPECT_EQ(request.word[0], static_cast<uint32_t>(kType));
            EXPECT_EQ(request.word[1], 0x2002U);
            EXPECT_EQ(request.word[2], 1U);
            EXPECT_EQ(request.word[3], 0U);
            c.host(queue);
        });
        PositionMessage message{};
        EXPECT_EQ(AVStreamQuery(kType, 1, kQueryKeyFrame, &message), 0);
        host.join();
        EXPECT_EQ(message.word[3], c.result);
        EXPECT_EQ(QueueLength(), 0U);
    }
}

TEST_F(PositionQuery, AsksAgainWhenTheHostDiedWithTheRequest)
{
    std::thread host([&] {
        (void)TakeRequest(queue_); // and dies
        (void)TakeRequest(queue_);
        Answer(queue_, kType, kQueryStart, 0, 128);
    });
    EXPECT_EQ(QueryPosition(kType, 0, kQueryStart), 128U);
    host.join();
}

TEST_F(PositionQuery, RequestThatIsStillQueuedIsNotSentTwice)
{
    std::thread reader([] { EXPECT_EQ(QueryPosition(kType, 0, kQueryStart), 128U); });
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1300);
    size_t most = 0;
    while (std::chrono::steady_clock::now() < end)
        most = std::max(most, QueueLength()); // a second one would come after a second
    (void)TakeRequest(queue_);
    Answer(queue_, kType, kQueryStart, 0, 128);
    reader.join();
    EXPECT_EQ(most, 1U);
}

TEST_F(PositionQuery, OpensAQueueThatWasCreatedAnew)
{
    ASSERT_TRUE(OpenPositionQueue());
    msgctl(queue_, IPC_RMID, nullptr);
    EXPECT_EQ(QueryPosition(kType, 0, kQueryStart), 0U); // the exchange that finds it gone
    const int anew = Queue();
    std::thread host([&] {
        (void)TakeRequest(anew);
        Answer(anew, kType, kQueryStart, 0, 256);
    });
    EXPECT_EQ(QueryPosition(kType, 0, kQueryStart), 256U);
    host.join();
}

TEST_F(PositionQuery, QueueFullOfOwnAnswersDoesNotBlock)
{
    const PositionMessage stale{.type = kType, .word = {kType, kQueryStart, 0, 1}};
    ASSERT_TRUE(OpenPositionQueue());
    while (msgsnd(queue_, &stale, PositionMessage::kTextBytes, IPC_NOWAIT) == 0) {
    }
    std::thread host([&] {
        (void)TakeRequest(queue_);
        Answer(queue_, kType, kQueryStart, 0, 512);
    });
    EXPECT_EQ(QueryPosition(kType, 0, kQueryStart), 512U);
    host.join();
}

TEST_F(PositionQuery, ReadersOfBothStreamsGetTheirOwnAnswers)
{
    constexpr uint32_t kRounds = 50;
    std::thread host([&] {
        for (uint32_t i = 0; i < 2 * kRounds; i++) {
            const PositionMessage request = TakeRequest(queue_);
            Answer(queue_, kType, request.word[1], request.word[2], 1000 + request.word[2]);
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
