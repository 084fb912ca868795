#include "camera/parameter_messages.h"

#include <gtest/gtest.h>
#include <sys/msg.h>
#include <sys/shm.h>

#include <atomic>
#include <cerrno>
#include <map>
#include <optional>
#include <sstream>
#include <thread>

#include "camera/parameter_block.h"
#include "camera/parameter_fields.h"
#include "camera/parameter_lock.h"
#include "camera/parameter_message.h"
#include "tests/camera/camera_setup.h"
#include "tests/captured_output.h"
#include "tests/table.h"

namespace {

std::atomic<int> g_interruptedReceives{0}; // of answers still to fail with EINTR
std::atomic<int> g_clockSpeed{1};

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
int64_t __real__Z11MonotonicMsv();
int64_t __wrap__Z11MonotonicMsv();
int64_t __wrap__Z11MonotonicMsv()
{
    return __real__Z11MonotonicMsv() * g_clockSpeed;
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

TEST_F(ParameterMessages, CarryTheWholeSlotAndNothingMore)
{
    const std::vector<uint8_t> wholeSlot(12288, 0xAB), tooLong(12289);
    EXPECT_EQ(ControlSystemData(4217, wholeSlot.data(), wholeSlot.size()), 0xAB);
    EXPECT_EQ(Host().Take(), (std::vector<Request>{{182, wholeSlot}}));
    for (const int32_t status : {ControlSystemData(4096, nullptr, 4), ControlSystemData(4403, nullptr, 1),
                                 ControlSystemData(4217, tooLong.data(), tooLong.size())})
        EXPECT_EQ(status, -1);
    EXPECT_EQ(Host().Take(), std::vector<Request>());
}

// Answers that nobody waits for, to this process or another: so many, or as many as the queue takes.
template <int kProcess> void FillQueue(int answers)
{
    const ParameterMessage toNobody{kProcess, 2, kProcess, 0, 99, 0};
    const int queue = msgget(kQueueKey, 0);
    while (answers-- > 0 && msgsnd(queue, &toNobody, kParameterTextBytes, IPC_NOWAIT) == 0) {
    }
}

// Removes the data segment; its owner makes another one that is too small, or none.
void ReplaceSegment(int bytes)
{
    ASSERT_EQ(shmctl(shmget(kQueueKey, 0, 0), IPC_RMID, nullptr), 0);
    ASSERT_TRUE(bytes == 0 || shmget(kQueueKey, static_cast<size_t>(bytes), IPC_CREAT | 0660) >= 0);
}

const std::map<std::string, void (*)(int)> kEvents = {
    {"process", [](int id) { EXPECT_EQ(SysDrvInit(id), 0); }},
    {"length", [](int bytes) { Host().answerBytes = static_cast<size_t>(bytes); }},
    {"stray", [](int code) { Host().strayCode = code; }},
    {"code", [](int code) { Host().answerCode = code; }},
    {"removal", [](int) { Host().removesQueue = true; }},
    {"interrupts", [](int count) { g_interruptedReceives = count; }},
    {"waiting", FillQueue<7>},
    {"others", FillQueue<3>},
    {"speed", [](int speed) { g_clockSpeed = speed; }},
    {"segment", ReplaceSegment},
};

TEST_F(ParameterMessages, HaveTheResultsThatTheirRowsSay)
{
    for (const TableRow& row : ReadTable(VELMORA_CAMERA_DATA "/parameter_messages.tsv", 6)) {
        SCOPED_TRACE(row[0] + " " + row[1]);
        std::istringstream events(row[1]);
        int value = 0;
        for (std::string event; events >> event >> value;)
            kEvents.at(event)(value);
        std::istringstream message(row[2]);
        uint32_t field = 0, sent = 0;
        message >> field >> sent;
        std::optional<CapturedOutput> said(std::in_place, std::vector{STDOUT_FILENO, STDERR_FILENO}, false);
        const int32_t result = Send(field, sent);
        const std::string text = said->Text();
        said.reset();
        EXPECT_EQ(result, std::stoi(row[3]));
        EXPECT_NE(text.find(row[5]), std::string::npos) << text;
        EXPECT_EQ(g_interruptedReceives, 0);
        if (row[4] != "later") {
            EXPECT_EQ(Host().TakeText(), row[4]);
        }
    }
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
