#include "camera/parameter_messages.h"

#include <gtest/gtest.h>
#include <sys/msg.h>
#include <sys/shm.h>

#include <atomic>
#include <cerrno>
#include <map>
#include <thread>

#include "camera/parameter_fields.h"
#include "camera/parameter_lock.h"
#include "tests/camera/parameter_host.h"

namespace {

constexpr key_t kKey = 14073;

std::atomic<int> g_interruptedReceives{0}; // of answers still to fail with EINTR
std::atomic<bool> g_drainedRequests{false};
std::atomic<int> g_mutexError{0};
std::atomic<bool> g_failQueues{false};
std::atomic<bool> g_failSegments{false};

} // namespace

// The linker passes these calls of the program through here, so that they can fail at will.
extern "C" {
ssize_t __real_msgrcv(int id, void* message, size_t bytes, long type, int flags);
ssize_t __wrap_msgrcv(int id, void* message, size_t bytes, long type, int flags);
int __real_msgget(key_t key, int flags);
int __wrap_msgget(key_t key, int flags);
int __real_shmget(key_t key, size_t bytes, int flags);
int __wrap_shmget(key_t key, size_t bytes, int flags);
int __real_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attribute);
int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attribute);

ssize_t __wrap_msgrcv(int id, void* message, size_t bytes, long type, int flags)
{
    if (type == 1 && (flags & IPC_NOWAIT) != 0) // the host waits for its requests
        g_drainedRequests = true;
    if (type != 1 && g_interruptedReceives > 0) {
        g_interruptedReceives--;
        errno = EINTR;
        return -1;
    }
    return __real_msgrcv(id, message, bytes, type, flags);
}

int __wrap_msgget(key_t key, int flags)
{
    return g_failQueues ? -1 : __real_msgget(key, flags);
}

int __wrap_shmget(key_t key, size_t bytes, int flags)
{
    return g_failSegments ? -1 : __real_shmget(key, bytes, flags);
}

int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attribute)
{
    return g_mutexError != 0 ? g_mutexError.load() : __real_pthread_mutex_init(mutex, attribute);
}
}

namespace {

class ParameterMessages : public testing::Test {
  protected:
    void SetUp() override
    {
        ASSERT_EQ(SysDrvInit(7), 0);
        Host().Take();
    }
    void TearDown() override
    {
        Host().AnswerWith(nullptr);
        ASSERT_EQ(SysDrvInit(7), 0);
    }
};

template <typename Call> std::string ErrorOutputOf(Call call)
{
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
}

int32_t Send(uint32_t field, uint32_t value)
{
    return ControlSystemData(field, &value, sizeof value);
}

TEST(ParameterFields, MapToTheirCodes)
{
    constexpr int kNone = -1;
    const std::map<uint32_t, int> codes = {
        {0, kNone},    {4095, kNone}, {4096, 0},     {4097, 1},     {4098, 14},    {4099, 46},    {4100, 272},
        {4104, 5},     {4108, 6},     {4110, 283},   {4115, 260},   {4124, 64},    {4144, 220},   {4150, 70},
        {4151, 74},    {4154, 71},    {4171, 91},    {4195, 132},   {4210, 106},   {4218, 183},   {4256, 170},
        {4257, kNone}, {4258, 172},   {4273, 38},    {4285, 20},    {4299, 48},    {4303, 226},   {4312, 279},
        {4313, 233},   {4315, kNone}, {4318, 344},   {4319, kNone}, {4323, 268},   {4335, 291},   {4347, 303},
        {4348, 319},   {4357, 304},   {4369, kNone}, {4385, 338},   {4387, 8},     {4388, 7},     {4389, 10},
        {4390, 9},     {4395, 243},   {4396, 244},   {4400, 193},   {4402, 221},   {4403, kNone}, {4404, 13},
        {4410, kNone}, {4422, 57},    {4431, 221},   {4435, 238},   {4436, kNone}, {8192, 55},    {8193, 247},
        {8194, kNone}, {8197, 250},   {8200, 261},   {8210, 357},   {8211, kNone},
    };
    for (const auto& [field, code] : codes)
        EXPECT_EQ(ParameterCode(field).value_or(kNone), code) << field;
}

TEST(ParameterFields, ShareNoCodeBut221)
{
    std::map<int, int> fieldsOfCode;
    for (uint32_t field = 0; field < 10000; field++)
        if (const auto code = ParameterCode(field))
            fieldsOfCode[*code]++;
    for (const auto& [code, fields] : fieldsOfCode)
        EXPECT_EQ(fields, code == 221 ? 2 : 1) << code;
}

TEST_F(ParameterMessages, CarryTheValueInTheSlotAndReturnTheHostsResult)
{
    Host().AnswerWith([](const Request&) { return -77; });
    EXPECT_EQ(Send(4096, 0x0100007F), -77);
    const std::vector<uint8_t> wholeSlot(12288, 0xAB);
    EXPECT_EQ(ControlSystemData(4217, wholeSlot.data(), wholeSlot.size()), -77);
    EXPECT_EQ(Host().Take(),
              (std::vector<Request>{{0, {0x7F, 0, 0, 1}, 7, 61440}, {182, wholeSlot, 7, 61440}}));
}

TEST_F(ParameterMessages, AreNotSentForWhatCannotBe)
{
    const std::vector<uint8_t> tooLong(12289);
    EXPECT_EQ(ControlSystemData(4096, nullptr, 4), -1);
    EXPECT_EQ(ControlSystemData(4403, nullptr, 1), -1);
    EXPECT_EQ(ControlSystemData(4217, tooLong.data(), tooLong.size()), -1);
    EXPECT_EQ(Send(4257, 0), -1);
    EXPECT_EQ(Send(4403, 0), 0);
    for (const int withoutSlot : {1, 14, 15}) {
        EXPECT_EQ(SysDrvInit(withoutSlot), 0);
        EXPECT_EQ(Send(4096, 0), -1) << withoutSlot;
    }
    EXPECT_EQ(Host().Take(), std::vector<Request>());
    for (const auto& [withSlot, offset] : {std::pair(2, 0), std::pair(13, 135168)}) {
        EXPECT_EQ(SysDrvInit(withSlot), 0);
        EXPECT_EQ(Send(4096, 0), 4);
        EXPECT_EQ(Host().Take(), (std::vector<Request>{{0, {0, 0, 0, 0}, withSlot, offset}}));
    }
}

TEST_F(ParameterMessages, HaveSendersThatAnnounceThemselves)
{
    EXPECT_EQ(ErrorOutputOf([] { Send(4107, 1); }), "SetSysRTSPEncrypt");
    EXPECT_EQ(ErrorOutputOf([] { Send(4109, 1); }), "SetSysPalloSslEncrypt");
    EXPECT_EQ(ErrorOutputOf([] { Send(4110, 1); }), "SetSysPalloPushImageEnable");
    EXPECT_EQ(ErrorOutputOf([] { Send(4106, 1); }), "");
    testing::internal::CaptureStdout();
    Send(4099, 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), " control systemdata SFIELD_SET_DNS\n");
}

TEST_F(ParameterMessages, Code247ComparesTheResultWithTheLength)
{
    EXPECT_EQ(Send(8193, 0), 0);
    Host().AnswerWith([](const Request&) { return 0; });
    EXPECT_EQ(Send(8193, 0), -1);
}

TEST_F(ParameterMessages, Code193WaitsOnAfterASignalAndTheOthersDoNot)
{
    Host().AnswerWith([](const Request& request) { return request.value[0]; });
    g_interruptedReceives = 3;
    EXPECT_EQ(Send(4400, 50), 50);
    EXPECT_EQ(g_interruptedReceives, 0);

    g_interruptedReceives = 1;
    EXPECT_EQ(Send(4101, 51), 4); // the length it sent: its record was not overwritten
    Host().WaitForAnswers(2);     // before the slot gets another value
    EXPECT_EQ(Send(4101, 52), 51) << "the answer of the interrupted exchange";
    Host().WaitForAnswers(3);
    EXPECT_EQ(SysDrvInit(7), 0);
    EXPECT_EQ(Send(4101, 53), 53) << "set-up throws the late answer away";
}

TEST_F(ParameterMessages, DropAnswersOfAnEarlierLifeButNoRequests)
{
    struct Message {
        long type;
        int32_t word[8];
    };
    const int queue = __real_msgget(kKey, 0);
    for (const long type : {7L, 7L, 12L}) {
        const Message stale{type, {1, 2, 3, 4711}};
        ASSERT_EQ(msgsnd(queue, &stale, sizeof stale.word, 0), 0); // longer than an answer
    }
    EXPECT_EQ(SysDrvInit(1), 0); // messages of type 1 are requests of others, not its answers
    EXPECT_FALSE(g_drainedRequests);
    EXPECT_EQ(SysDrvInit(7), 0);
    EXPECT_EQ(Send(4101, 0), 4);
    Message others;
    EXPECT_GT(__real_msgrcv(queue, &others, sizeof others.word, 12, IPC_NOWAIT), 0);
    EXPECT_LT(__real_msgrcv(queue, &others, sizeof others.word, 0, IPC_NOWAIT), 0);
}

TEST_F(ParameterMessages, OpenARemovedQueueAgain)
{
    Host().RemoveQueueAtNextRequest();
    EXPECT_EQ(Send(4101, 1), 4);
    EXPECT_EQ(Send(4102, 2), 4);
    EXPECT_EQ(Host().Take(), (std::vector{Sent<uint32_t>(2, 1), Sent<uint32_t>(3, 2)}));
}

TEST_F(ParameterMessages, NeverCopyOutsideTheDataSegment)
{
    ASSERT_EQ(shmctl(shmget(kKey, 0, 0), IPC_RMID, nullptr), 0);
    const int small = shmget(kKey, 61443, IPC_CREAT | 0660); // a byte short
    EXPECT_EQ(Send(4101, 1), -1);
    ASSERT_EQ(shmctl(small, IPC_RMID, nullptr), 0);
    g_failSegments = true;
    EXPECT_EQ(Send(4101, 2), -1);
    g_failSegments = false;
    EXPECT_EQ(Send(4101, 3), 4); // creates it anew
    EXPECT_EQ(Host().Take(), std::vector{Sent<uint32_t>(2, 3)});
}

TEST_F(ParameterMessages, OfManyThreadsEachGetTheirOwnAnswer)
{
    Host().AnswerWith([](const Request& request) { return request.value[0]; });
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (uint32_t i = 0; i < 4; i++)
        threads.emplace_back([i, &wrong] {
            for (uint32_t round = 0; round < 50; round++)
                wrong += Send(4101, i * 50 + round) != static_cast<int32_t>(i * 50 + round);
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(Host().Take().size(), 200U);
}

TEST_F(ParameterMessages, SetUpReportsEachFailure)
{
    const struct {
        const char* name;
        int processId, mutexError;
        bool failQueues, failSegments;
        const char* output;
    } cases[] = {
        {"ZeroId", 0, 0, false, false, "Error:Invalid Parameter\n"},
        {"HighId", 16, 0, false, false, "Error:Invalid Parameter\n"},
        {"Segment", 7, 0, false, true, "Error:Share Memory init fail\n"},
        {"LockMemory", 7, ENOMEM, false, false,
         "Error: Not enough memory!!\nError:No more memory to create semaphore\n"},
        {"Lock", 7, EAGAIN, false, false,
         "Error: Sem_Creat init faill!!\nError:No more memory to create semaphore\n"},
        {"Queue", 7, 0, true, false, "Creat queue id:-1\nqueue id:-1\nError:Msg_Init fail\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(SysDrvExit(), 0);
        g_mutexError = c.mutexError;
        g_failQueues = c.failQueues;
        g_failSegments = c.failSegments;
        EXPECT_EQ(ErrorOutputOf([&] { EXPECT_EQ(SysDrvInit(c.processId), -1); }), c.output);
        g_mutexError = 0;
        g_failQueues = g_failSegments = false;
        EXPECT_EQ(gSysProcId, 1);
        EXPECT_FALSE(SemExists());
        EXPECT_EQ(SysDrvInit(7), 0);
    }
}

TEST_F(ParameterMessages, LockHelpersRefuseAMissingLock)
{
    EXPECT_EQ(ErrorOutputOf([] { EXPECT_EQ(SysDrvExit(), 0); }), "");
    EXPECT_EQ(ErrorOutputOf([] { EXPECT_EQ(SemWait(), -1); }), "Error: SemWait: Invalid Semaphore handler\n");
    EXPECT_EQ(ErrorOutputOf([] { EXPECT_EQ(SemRelease(), -1); }),
              "Error: SemRelease: Invalid Semaphore handler\n");
    EXPECT_EQ(ErrorOutputOf([] { EXPECT_EQ(SysDrvExit(), 0); }),
              "Error: DestroySem: Invalid Semaphore handler\n");
    const std::string setUp = ErrorOutputOf([] { EXPECT_EQ(SysDrvInit(7), 0); });
    EXPECT_EQ(setUp, "queue id:" + std::to_string(__real_msgget(kKey, 0)) + "\nSysDrvInit 86 gSysProcId 7\n");
    EXPECT_EQ(SemWait(), 0);
    EXPECT_EQ(SemRelease(), 0);
}

} // namespace
