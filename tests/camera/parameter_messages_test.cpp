#include "camera/parameter_messages.h"

#include <gtest/gtest.h>
#include <sys/msg.h>
#include <sys/shm.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <thread>

#include "camera/parameter_block.h"
#include "camera/parameter_fields.h"
#include "camera/parameter_lock.h"
#include "camera/parameter_message.h"
#include "tests/camera/parameter_host.h"

namespace {

std::atomic<int> g_interruptedReceives{0}; // of answers still to fail with EINTR

} // namespace

// The linker passes this call of the program through here, so that it can fail at will.
extern "C" {
ssize_t __real_msgrcv(int id, void* message, size_t bytes, long type, int flags);
ssize_t __wrap_msgrcv(int id, void* message, size_t bytes, long type, int flags);
ssize_t __wrap_msgrcv(int id, void* message, size_t bytes, long type, int flags)
{
    // The host waits for its requests; only who waits is interrupted.
    if (type == 1 || (flags & IPC_NOWAIT) != 0 || g_interruptedReceives == 0)
        return __real_msgrcv(id, message, bytes, type, flags);
    g_interruptedReceives--;
    errno = EINTR;
    return -1;
}
}

namespace {

class ParameterMessages : public testing::Test {
  protected:
    ParameterMessages()
    {
        EXPECT_EQ(SysDrvInit(7), 0);
        Host().answersFirstByte = true;
        Host().Take();
    }
    ~ParameterMessages() override
    {
        EXPECT_EQ(SysDrvInit(7), 0);
        Host().answersFirstByte = false;
    }
};

int32_t Send(uint32_t field, uint32_t value)
{
    return ControlSystemData(field, &value, sizeof value);
}

// The sum was worked out from the list of fields and codes by itself, over the fields in rising order.
TEST(ParameterFields, MapToTheirCodes)
{
    uint64_t sum = 0;
    int accepted = 0;
    for (uint32_t field = 0; field < 10000; field++)
        if (const auto code = ParameterCode(field)) {
            sum = sum * 31 + field * 1000 + static_cast<uint64_t>(*code);
            accepted++;
        }
    EXPECT_EQ(accepted, 342);
    EXPECT_EQ(sum, 13679992512577578918ULL);
    EXPECT_EQ(ParameterCode(0xFFFFFFFF), std::nullopt);
}

TEST(ParameterBlock, IsReadWithinItsBounds)
{
    memset(Host().block, 'x', kBlockBytes);
    char text[100];
    BlockText(GetSysConfig(), 1912, 64, text, sizeof text);
    EXPECT_EQ(text, std::string(64, 'x'));
    BlockText(GetSysConfig(), 1912, 64, text, 5);
    EXPECT_STREQ(text, "xxxx");
    BlockText(GetSysConfig(), kBlockBytes - 63, 64, text, sizeof text);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(BlockField<uint16_t>(GetSysConfig(), kBlockBytes - 1), 0);
}

TEST_F(ParameterMessages, CarryTheValueInTheSlotAndReturnTheHostsResult)
{
    EXPECT_EQ(Send(4096, 0x0100007F), 127);
    const std::vector<uint8_t> wholeSlot(12288, 0xAB);
    EXPECT_EQ(ControlSystemData(4217, wholeSlot.data(), wholeSlot.size()), 0xAB);
    EXPECT_EQ(Host().Take(), (std::vector<Request>{{0, {0x7F, 0, 0, 1}}, {182, wholeSlot}}));
    EXPECT_EQ(Send(8193, 0), -1) << "the sender that compares the result with the length";
    EXPECT_EQ(Send(8193, 4), 0);
}

TEST_F(ParameterMessages, AreNotSentForWhatCannotBe)
{
    const std::vector<uint8_t> tooLong(12289);
    for (const int32_t status : {ControlSystemData(4096, nullptr, 4), ControlSystemData(4403, nullptr, 1),
                                 ControlSystemData(4217, tooLong.data(), tooLong.size()), Send(4257, 0)})
        EXPECT_EQ(status, -1);
    EXPECT_EQ(Send(4403, 0), 0);
    for (const int withoutSlot : {1, 14, 15}) {
        EXPECT_EQ(SysDrvInit(withoutSlot), 0);
        EXPECT_EQ(Send(4096, 0), -1) << withoutSlot;
    }
    EXPECT_EQ(Host().Take(), std::vector<Request>());
    for (const auto& [withSlot, offset] : {std::pair(2, 0), {13, 135168}}) {
        EXPECT_EQ(SysDrvInit(withSlot), 0);
        EXPECT_EQ(Send(4096, 5), 5);
        EXPECT_EQ(Host().Take(), (std::vector<Request>{{0, {5, 0, 0, 0}, withSlot, offset}}));
    }
}

TEST_F(ParameterMessages, HaveSendersThatAnnounceThemselves)
{
    const char* const announcements[] = {"", "SetSysRTSPEncrypt", "", "SetSysPalloSslEncrypt",
                                         "SetSysPalloPushImageEnable"};
    for (uint32_t i = 0; i < 5; i++)
        EXPECT_EQ(ErrorOutputOf([i] { Send(4106 + i, 1); }), announcements[i]);
    testing::internal::CaptureStdout();
    Send(4099, 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), " control systemdata SFIELD_SET_DNS\n");
}

TEST_F(ParameterMessages, Code193WaitsOnAfterASignalAndTheOthersDoNot)
{
    g_interruptedReceives = 3;
    EXPECT_EQ(Send(4400, 50), 50);
    EXPECT_EQ(g_interruptedReceives, 0);
    Host().Take();
    g_interruptedReceives = 1;
    EXPECT_EQ(Send(4101, 51), 4);  // the length it sent: its record was not overwritten
    EXPECT_EQ(Send(4101, 53), 53); // not the late answer, whose value the host read before
    const std::vector<Request> requests = Host().Take();
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(requests[0].value.at(0), 51);
}

TEST_F(ParameterMessages, SurviveAnswersOfAnyLength)
{
    for (const size_t bytes : {0U, 4U, 16U, 400U, 20U}) {
        Host().answerBytes = bytes;
        EXPECT_EQ(Send(4101, 99), bytes < 16 ? 4 : 99) << bytes;
    }
}

TEST_F(ParameterMessages, OutliveARemovedQueueAndASegmentThatIsTooSmall)
{
    Host().removesQueue = true;
    EXPECT_EQ(Send(4101, 1), 4);
    EXPECT_EQ(Send(4102, 2), 2);
    ASSERT_EQ(shmctl(shmget(kQueueKey, 0, 0), IPC_RMID, nullptr), 0);
    const int small = shmget(kQueueKey, 61443, IPC_CREAT | 0660); // a byte short
    EXPECT_EQ(Send(4101, 3), -1);
    ASSERT_EQ(shmctl(small, IPC_RMID, nullptr), 0);
    EXPECT_EQ(Send(4101, 5), 5); // creates it anew
    EXPECT_EQ(Host().Take(), (std::vector{Sent<uint32_t>(2, 1), Sent<uint32_t>(3, 2), Sent<uint32_t>(2, 5)}));
}

TEST_F(ParameterMessages, AreAnsweredByTheAnswerToThem)
{
    const ParameterMessage toNobody{7, 2, 7, 0, 99, 0};
    const int queue = msgget(kQueueKey, 0);
    for (const int waiting : {1, 2, INT_MAX}) { // the last one: as many as the queue takes
        for (int i = 0; i < waiting && msgsnd(queue, &toNobody, kParameterTextBytes, IPC_NOWAIT) == 0; i++) {
        }
        EXPECT_EQ(Send(4101, 5), 5) << waiting;
    }
    Host().strayCode = 3; // of field 4102: a former life's
    EXPECT_EQ(Send(4101, 6), 6);
    EXPECT_EQ(Send(4102, 7), 99) << "which cannot be told from its own";
    EXPECT_EQ(Send(4101, 8), 8) << "and disturbs no further one";
    Host().strayCode = ParameterHost::kNoStray;
}

TEST_F(ParameterMessages, AreAnsweredWhateverCodeTheHostPutsIntoAnswers)
{
    Host().answerCode = 3;
    EXPECT_EQ(Send(4101, 5), 5);
    EXPECT_EQ(Send(4103, 6), 6);
    Host().answerCode = ParameterHost::kNoStray;
}

TEST_F(ParameterMessages, OfManyThreadsEachGetTheirOwnAnswer)
{
    std::vector<std::jthread> threads;
    std::atomic<int> right{0};
    for (uint32_t i = 0; i < 4; i++)
        threads.emplace_back([i, &right] {
            for (uint32_t value = i * 50; value < i * 50 + 50; value++)
                right += Send(4101, value) == static_cast<int32_t>(value);
        });
    threads.clear();
    EXPECT_EQ(right, 200);
}

TEST_F(ParameterMessages, EndWithTheirLock)
{
    for (const int wrongProcess : {0, 16}) {
        EXPECT_EQ(ErrorOutputOf([&] { EXPECT_EQ(SysDrvInit(wrongProcess), -1); }),
                  "Error:Invalid Parameter\n");
        EXPECT_EQ(gSysProcId, 1);
    }
    EXPECT_EQ(SysDrvExit(), 0);
    for (const auto& [call, name] : {std::pair(&SemWait, "SemWait"), {&SemRelease, "SemRelease"}})
        EXPECT_EQ(ErrorOutputOf([call = call] { EXPECT_EQ(call(), -1); }),
                  std::string("Error: ") + name + ": Invalid Semaphore handler\n");
    EXPECT_EQ(Send(4101, 1), -1);
    const std::string id = std::to_string(msgget(kQueueKey, 0));
    for (int i = 0; i < 2; i++) // the second finds lock and queue
        EXPECT_EQ(ErrorOutputOf([] { EXPECT_EQ(SysDrvInit(7), 0); }),
                  "queue id:" + id + "\nSysDrvInit 86 gSysProcId 7\n");
    EXPECT_EQ(Host().Take(), std::vector<Request>());
}

} // namespace
