#include "media/encoder_control.h"

#include <sys/msg.h>

#include <thread>

#include "common/clock.h"
#include "tests/media/fakes.h"

namespace {

using Words = std::vector<uint32_t>;

// A host that reads the queue when the test says so.
class EncoderControl : public testing::Test {
  protected:
    EncoderControl() { EXPECT_EQ(MediaHostCtrlInit(), 0); }
    ~EncoderControl() override { Remove(); }
    static int Queue() { return msgget(kControlQueueKey, IPC_CREAT | 0600); }
    static void Remove() { msgctl(Queue(), IPC_RMID, nullptr); }
    static Words TakeOrder()
    {
        ControlMessage order{};
        const ssize_t bytes = msgrcv(Queue(), &order, ControlMessage::kTextBytes, kControlRequestType, 0);
        return bytes == 32 ? Words(order.word, order.word + 8) : Words();
    }
    static void Answer(const Words& words, size_t bytes = 32)
    {
        QueueMessage<12> message{.type = kControlReplyType, .word = {}};
        std::copy(words.begin(), words.end(), message.word);
        EXPECT_EQ(msgsnd(Queue(), &message, bytes, 0), 0);
    }
    static size_t QueueLength()
    {
        msqid_ds status{};
        return msgctl(Queue(), IPC_STAT, &status) == 0 ? status.msg_qnum : 0;
    }
};

TEST_F(EncoderControl, EveryCommandOfTheFamilyTravelsWithWhatItTakes)
{
    constexpr uint8_t kBytes[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    for (const auto& [command, argument] : kControlCommands) {
        SCOPED_TRACE(command);
        Words expected{2, command, argument == kNumber ? 0xFFFFFFFE : 0, 0, 0, 0, 0, 0};
        if (argument == kPayload)
            memcpy(&expected[4], kBytes, sizeof kBytes);
        std::thread host([&expected] {
            EXPECT_EQ(TakeOrder(), expected);
            Answer({2, expected[1], expected[2], static_cast<uint32_t>(-7)});
        });
        EXPECT_EQ(argument == kPayload ? MediaHostPayloadRequest(kBytes) : MediaHostRequest(command, -2), -7);
        host.join();
    }
    for (const uint32_t command : {0U, 0x2011U, 0x6605U})
        EXPECT_EQ(MediaHostRequest(command), 102);
    EXPECT_EQ(MediaHostPayloadRequest(nullptr), 102);
    EXPECT_EQ(QueueLength(), 0U);
}

TEST_F(EncoderControl, LateAnswersAreNotTakenForTheNextOrders)
{
    Answer({2, 0x2010, 1, 11}); // came before the order: nobody waits for it
    Answer({0, 0, 0, 12});
    std::thread host([] {
        TakeOrder();
        Answer({2, 0x2010, 0, 13});     // to another argument,
        Answer({2, 0x2001, 1, 14});     // to another command,
        Answer({2, 0x2010, 1, 15}, 12); // without a result
        Answer({2, 0x2010, 1, 16}, 48); // overlong
        TakeOrder();
        Answer({0, 0, 0, 17}, 16); // a host that does not leave the words
    });
    EXPECT_EQ(MediaHostVideoForceIFrame(1), 16);
    EXPECT_EQ(MediaHostVideoForceIFrame(0), 17);
    host.join();
    EXPECT_EQ(QueueLength(), 0U);
}

TEST_F(EncoderControl, DeadHostIsWaitedForOneSecondAlsoWhenTheQueueIsFull)
{
    msqid_ds status{};
    msgctl(Queue(), IPC_STAT, &status);
    status.msg_qbytes = 32;
    EXPECT_EQ(msgctl(Queue(), IPC_SET, &status), 0);
    Answer({2, 0x2010, 0, 1});                    // fills it until it is drained,
    for (const char* error : {"110\n", "11\n"}) { // and then the order does
        const FakeLog log;
        const int64_t fromMs = MonotonicMs();
        EXPECT_EQ(MediaHostVideoForceIFrame(0), 0);
        EXPECT_GE(MonotonicMs() - fromMs, 1000);
        EXPECT_EQ(log.Count("MediaHostRequest N: control queue failed, errno = " + std::string(error)), 1);
    }
    EXPECT_EQ(TakeOrder(), Words({2, 0x2010, 0, 0, 0, 0, 0, 0})); // the host may yet come
}

TEST_F(EncoderControl, RemovedQueueIsOpenedAgainByTheNextOrder)
{
    Remove(); // before the order, and while it waits
    std::thread host([] {
        WaitUntil([] { return QueueLength() == 1; });
        Remove();
        TakeOrder(); // of the next one
        Answer({2, 0x2010, 1, 5});
    });
    EXPECT_EQ(MediaHostVideoForceIFrame(0), 0);
    EXPECT_EQ(MediaHostVideoForceIFrame(1), 5);
    host.join();
}

} // namespace
