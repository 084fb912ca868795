#include "media/encoder_control.h"

#include "tests/media/fakes.h"

namespace {

// A host that looks at the queue whenever the order sleeps.
class EncoderControl : public testing::Test {
  protected:
    EncoderControl() { EXPECT_EQ(MediaHostCtrlInit(), 0); }
    void Answer(const Words& words, size_t bytes = 32) const { host_.Send(kControlReplyType, words, bytes); }

    const QueueEnd host_{kControlQueueKey};
    FakeClock clock_;
};

TEST_F(EncoderControl, EveryCommandOfTheFamilyTravelsWithWhatItTakes)
{
    constexpr uint8_t kBytes[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    for (const auto& [command, argument] : kControlCommands) {
        SCOPED_TRACE(command);
        Words expected{2, command, argument == kNumber ? 0xFFFFFFFE : 0, 0, 0, 0, 0, 0};
        if (argument == kPayload)
            memcpy(&expected[4], kBytes, sizeof kBytes);
        clock_.onSleep = [&] {
            EXPECT_EQ(host_.Take(), expected);
            Answer({2, expected[1], expected[2], static_cast<uint32_t>(-7)});
        };
        EXPECT_EQ(argument == kPayload ? MediaHostPayloadRequest(kBytes) : MediaHostRequest(command, -2), -7);
    }
    for (const uint32_t command : {0U, 0x2011U, 0x6605U})
        EXPECT_EQ(MediaHostRequest(command), 102);
    EXPECT_EQ(MediaHostPayloadRequest(nullptr), 102);
    EXPECT_EQ(host_.Messages(), 0U);
}

TEST_F(EncoderControl, LateAnswersAreNotTakenForTheNextOrders)
{
    Answer({2, 0x2010, 1, 11}); // came before the order: nobody waits for it
    Answer({0, 0, 0, 12});
    clock_.onSleep = [this] {
        if (const Words order = host_.Take(); order.empty() || order[2] == 0)
            return Answer({0, 0, 0, 17}, 16); // a host that does not leave the words
        Answer({2, 0x2010, 0, 13});           // to another argument,
        Answer({2, 0x2001, 1, 14});           // to another command,
        Answer({2, 0x2010, 1, 15}, 12);       // without a result
        Answer({2, 0x2010, 1, 16}, 48);       // overlong
    };
    EXPECT_EQ(MediaHostVideoForceIFrame(1), 16);
    EXPECT_EQ(MediaHostVideoForceIFrame(0), 17);
    EXPECT_EQ(host_.Messages(), 0U);
}

TEST_F(EncoderControl, DeadHostIsWaitedForOneSecondAlsoWhenTheQueueIsFull)
{
    msqid_ds status{};
    msgctl(host_.id, IPC_STAT, &status);
    status.msg_qbytes = 32;
    EXPECT_EQ(msgctl(host_.id, IPC_SET, &status), 0);
    Answer({2, 0x2010, 0, 1});                    // fills it until it is drained,
    for (const char* error : {"110\n", "11\n"}) { // and then the order does
        const FakeLog log;
        clock_.sleeps.clear();
        EXPECT_EQ(MediaHostVideoForceIFrame(0), 0);
        EXPECT_EQ(clock_.sleeps, (Sleeps{{1, 50}, {10, 95}}));
        EXPECT_EQ(log.Count("MediaHostRequest N: control queue failed, errno = " + std::string(error)), 1);
    }
    EXPECT_EQ(host_.Take(), Words({2, 0x2010, 0, 0, 0, 0, 0, 0})); // the host may yet come
}

TEST_F(EncoderControl, RemovedQueueIsOpenedAgainByTheNextOrder)
{
    msgctl(host_.id, IPC_RMID, nullptr); // before the order, and while it waits
    clock_.onSleep = [] { const QueueEnd removed(kControlQueueKey); };
    EXPECT_EQ(MediaHostVideoForceIFrame(0), 0);
    EXPECT_EQ(clock_.sleeps, (Sleeps{{1, 1}}));
    const QueueEnd anew(kControlQueueKey);
    clock_.onSleep = [&] {
        EXPECT_EQ(anew.Take().at(1), 0x2010U);
        anew.Send(kControlReplyType, {2, 0x2010, 1, 5}, 32);
    };
    EXPECT_EQ(MediaHostVideoForceIFrame(1), 5);
}

} // namespace
